#include <set>
#include <utility>

#include "apps/zelan/posix/harbrelctl/model/keys.h"
#include "apps/zelan/posix/harbrelctl/output/networks.h"
#include "apps/zelan/posix/harbrelctl/output/report.h"

namespace {

// Told by the lines of the services.
const std::set<Field> SERVICE_KEYS = {FIELD_DHCP, FIELD_NAT, FIELD_ADAPTER};

void AddParameters(int network, const NetworkConfig &config, Table *table) {
    for (const KeyRow &key : Keys()) {
        const std::string value = KeyValue(key, network, config);
        const bool isService = SERVICE_KEYS.contains(key.field);
        if (!isService && KeyApplies(key, config) && !value.empty()) {
            table->rows.push_back({key.name, value + (KeyIsStored(key, config) ? "" : " (default)")});
        }
    }
}

void AddServices(const Host &host, const NetworkView &view, Table *table) {
    const NetworkState &state = host.networks[view.number];
    for (int service = 0; service < SERVICE_COUNT; service++) {
        const ServiceState &one = state.services[service];
        if (!one.configured && !one.running) {
            continue;
        }
        std::string text = one.running ? "running" : one.unknown ? "unknown" : "stopped";
        const std::optional<Process> &process = view.details.processes[service];
        if (process) {
            text += ", " + process->program + " (" + std::to_string(process->pid) + ")";
        }
        if (!one.configured) {
            text += ", not configured";
        }
        const bool good = one.running && one.configured;
        table->rows.push_back({SERVICES[service].name, Cell(text, good ? TONE_GOOD : TONE_BAD)});
    }
}

void AddPlaces(const Host &host, int network, Table *table) {
    const NetworkConfig &config = host.config.networks[network];
    for (const std::string &adapter : host.networks[network].adapters) {
        table->rows.push_back({"bridged to", adapter});
    }
    if (host.networks[network].IsRunning()) {
        table->rows.push_back({"switch", SwitchName(network)});
    }
    const std::pair<Field, std::string> files[] = {{FIELD_DHCP, host.paths.DhcpConf(network)},
                                                   {FIELD_DHCP, host.paths.Leases(network)},
                                                   {FIELD_NAT, host.paths.NatConf(network)}};
    for (const auto &[feature, path] : files) {
        if (config.IsOn(feature)) {
            table->rows.push_back({"file", path});
        }
    }
}

// A table with its own headline, indented; nothing when it has no row.
std::string Section(const char *title, const Table &table) {
    if (table.rows.empty()) {
        return "";
    }
    return std::string("\n") + title + "\n" + RenderTable(table, true, MayColour());
}

}  // namespace

std::string ShowText(const Host &host, const NetworkView &view) {
    const NetworkConfig &config = host.config.networks[view.number];
    Table facts = {{"", ""}, {}};
    facts.rows.push_back({"network", NetworkName(view.number)});
    facts.rows.push_back({"kind", KindName(KindOf(host.config, view.number))});
    AddServices(host, view, &facts);
    AddParameters(view.number, config, &facts);
    AddPlaces(host, view.number, &facts);
    const std::vector<NetworkView> one = {view};
    return RenderTable(facts, false, MayColour()) + Section("Forwards", ForwardTable(host, {view.number})) +
           Section("Reservations", ReservationTable(host, {view.number})) +
           Section("Leases", LeaseTable(one)) + Section("Guests", GuestTable(one));
}
