#include <utility>

#include "apps/zelan/posix/harbrelctl/output/networks.h"
#include "apps/zelan/posix/harbrelctl/output/report.h"

namespace {

// The keys of `set`, each with the field whose value it shows and, for a pair, the second one.
struct ShownKey {
    Field field;
    Field second;
};
constexpr ShownKey SHOWN_KEYS[] = {
    {FIELD_ADAPTER_ADDRESS, FIELD_COUNT},  {FIELD_ADAPTER_NAME, FIELD_COUNT},
    {FIELD_RANGE_FIRST, FIELD_RANGE_LAST}, {FIELD_LEASE_TIME, FIELD_COUNT},
    {FIELD_MAX_LEASE_TIME, FIELD_COUNT},   {FIELD_DNS, FIELD_COUNT},
    {FIELD_DOMAIN, FIELD_COUNT},           {FIELD_ROUTERS, FIELD_COUNT},
    {FIELD_GATEWAY, FIELD_COUNT},          {FIELD_ACTIVE_FTP, FIELD_COUNT},
    {FIELD_UDP_TIMEOUT, FIELD_COUNT},
};

// Whether the value says anything on this network.
bool Applies(const NetworkConfig &config, Field field) {
    if (config.Has(field)) {
        return true;
    }
    const unsigned users = FIELDS[field].takenUpBy;
    return ((users & USES_DHCP) != 0 && config.IsOn(FIELD_DHCP) &&
            (field != FIELD_ROUTERS || config.IsOn(FIELD_NAT))) ||
           ((users & USES_NAT) != 0 && config.IsOn(FIELD_NAT)) ||
           ((users & USES_ADAPTER) != 0 && config.IsOn(FIELD_ADAPTER));
}

void AddParameters(int network, const NetworkConfig &config, Table *table) {
    for (const ShownKey &key : SHOWN_KEYS) {
        if (!Applies(config, key.field)) {
            continue;
        }
        std::string value = EffectiveValue(network, config, key.field).value_or("");
        bool stored = config.Has(key.field);
        if (key.second != FIELD_COUNT) {
            value += "-" + EffectiveValue(network, config, key.second).value_or("");
            stored = stored || config.Has(key.second);
        }
        table->rows.push_back({FIELDS[key.field].name, value + (stored ? "" : " (default)")});
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
    const std::optional<Subnet> subnet = config.NetworkSubnet();
    Table facts = {{"", ""}, {}};
    facts.rows.push_back({"network", NetworkName(view.number)});
    facts.rows.push_back({"kind", KindName(KindOf(host.config, view.number))});
    if (subnet) {
        facts.rows.push_back({"subnet", SubnetText(*subnet)});
    }
    AddServices(host, view, &facts);
    AddParameters(view.number, config, &facts);
    AddPlaces(host, view.number, &facts);
    const std::vector<NetworkView> one = {view};
    return RenderTable(facts, false, MayColour()) + Section("Forwards", ForwardTable(host, {view.number})) +
           Section("Reservations", ReservationTable(host, {view.number})) +
           Section("Leases", LeaseTable(one)) + Section("Guests", GuestTable(one));
}
