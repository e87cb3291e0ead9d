// The keys are documented in docs/harbrelctl-json.md and described by docs/harbrelctl.schema.json.
#include <nlohmann/json.hpp>

#include "apps/zelan/posix/harbrelctl/output/networks.h"

namespace {

using Json = nlohmann::ordered_json;

std::string Document(const char *key, Json value) {
    Json document = {{"format", 1}};
    document[key] = std::move(value);
    return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

Json TextOrNull(const std::string &text) {
    return text.empty() ? Json() : Json(text);
}

Json NetworkOrNull(int network) {
    return network == NO_NETWORK ? Json() : Json(NetworkName(network));
}

Json SubnetJson(const NetworkConfig &config) {
    const std::optional<Subnet> subnet = config.NetworkSubnet();
    return subnet ? Json(SubnetText(*subnet)) : Json();
}

Json ServicesJson(const NetworkState &state) {
    Json services = Json::object();
    for (int service = 0; service < SERVICE_COUNT; service++) {
        const ServiceState &one = state.services[service];
        services[SERVICES[service].name] = {{"configured", one.configured}, {"running", one.running}};
    }
    return services;
}

Json ForwardOf(int network, const Forward &forward) {
    return {{"network", NetworkName(network)}, {"protocol", forward.tcp ? "tcp" : "udp"},
            {"port", forward.hostPort},        {"guest", AddressText(forward.guest)},
            {"guest_port", forward.guestPort}, {"note", forward.note}};
}

Json ForwardsJson(const Host &host, int network) {
    Json forwards = Json::array();
    for (const Forward &forward : host.config.networks[network].forwards) {
        forwards.push_back(ForwardOf(network, forward));
    }
    return forwards;
}

Json ReservationsJson(const Host &host, int network) {
    Json reservations = Json::array();
    for (const Reservation &tie : host.config.networks[network].reservations) {
        reservations.push_back(
            {{"network", NetworkName(network)}, {"address", AddressText(tie.address)}, {"mac", tie.mac}});
    }
    return reservations;
}

Json LeasesJson(const NetworkView &view) {
    Json leases = Json::array();
    for (const Lease &lease : view.details.leases) {
        leases.push_back({{"network", NetworkName(view.number)},
                          {"address", AddressText(lease.address)},
                          {"mac", TextOrNull(lease.mac)},
                          {"name", TextOrNull(lease.name)},
                          {"from", lease.from ? Json(UtcTime(*lease.from)) : Json()},
                          {"until", lease.until ? Json(UtcTime(*lease.until)) : Json()},
                          {"static", lease.reserved}});
    }
    return leases;
}

Json GuestsJson(const NetworkView &view) {
    Json guests = Json::array();
    for (const Guest &guest : view.details.guests) {
        guests.push_back({{"network", NetworkName(view.number)},
                          {"port", guest.port},
                          {"mac", TextOrNull(guest.mac)},
                          {"address", guest.address ? Json(AddressText(*guest.address)) : Json()},
                          {"name", TextOrNull(guest.name)},
                          {"received_bytes", guest.receivedBytes},
                          {"sent_bytes", guest.sentBytes},
                          {"received_packets", guest.receivedPackets},
                          {"sent_packets", guest.sentPackets}});
    }
    return guests;
}

Json ParametersJson(int network, const NetworkConfig &config) {
    Json parameters = Json::array();
    for (int field = FIELD_ADAPTER_ADDRESS; field < FIELD_DHCP; field++) {
        const std::optional<std::string> value = EffectiveValue(network, config, static_cast<Field>(field));
        if (value) {
            parameters.push_back({{"key", FIELDS[field].suffix},
                                  {"name", FIELDS[field].name},
                                  {"value", *value},
                                  {"default", !config.Has(static_cast<Field>(field))}});
        }
    }
    return parameters;
}

Json ProcessesJson(const Details &details) {
    Json processes = Json::object();
    for (int service = 0; service < SERVICE_COUNT; service++) {
        const std::optional<Process> &process = details.processes[service];
        if (process) {
            processes[SERVICES[service].name] = {{"pid", process->pid}, {"program", process->program}};
        }
    }
    return processes;
}

template <typename List>
std::string Flat(const char *key, const List &list, auto &&toJson) {
    Json all = Json::array();
    for (const auto &one : list) {
        Json part = toJson(one);
        all.insert(all.end(), part.begin(), part.end());
    }
    return Document(key, all);
}

}  // namespace

std::string ListJson(const Host &host, const std::vector<NetworkView> &views) {
    Json networks = Json::array();
    for (const NetworkView &view : views) {
        const NetworkConfig &config = host.config.networks[view.number];
        networks.push_back({{"number", view.number},
                            {"name", NetworkName(view.number)},
                            {"kind", KindName(KindOf(host.config, view.number))},
                            {"subnet", SubnetJson(config)},
                            {"services", ServicesJson(host.networks[view.number])},
                            {"guests", PortCount(view.details)},
                            {"leases", view.details.leases.size()},
                            {"forwards", config.forwards.size()}});
    }
    return Document("networks", networks);
}

std::string ShowJson(const Host &host, const NetworkView &view) {
    const NetworkConfig &config = host.config.networks[view.number];
    return Document("network", {{"number", view.number},
                                {"name", NetworkName(view.number)},
                                {"kind", KindName(KindOf(host.config, view.number))},
                                {"subnet", SubnetJson(config)},
                                {"services", ServicesJson(host.networks[view.number])},
                                {"processes", ProcessesJson(view.details)},
                                {"parameters", ParametersJson(view.number, config)},
                                {"adapters", host.networks[view.number].adapters},
                                {"forwards", ForwardsJson(host, view.number)},
                                {"reservations", ReservationsJson(host, view.number)},
                                {"leases", LeasesJson(view)},
                                {"guests", GuestsJson(view)},
                                {"files",
                                 {{"dhcpd.conf", host.paths.DhcpConf(view.number)},
                                  {"dhcpd.leases", host.paths.Leases(view.number)},
                                  {"nat.conf", host.paths.NatConf(view.number)}}}});
}

std::string ForwardJson(const Host &host, const std::vector<int> &networks) {
    return Flat("forwards", networks, [&host](int network) { return ForwardsJson(host, network); });
}

std::string ReservationJson(const Host &host, const std::vector<int> &networks) {
    return Flat("reservations", networks, [&host](int network) { return ReservationsJson(host, network); });
}

std::string LeaseJson(const std::vector<NetworkView> &views) {
    return Flat("leases", views, LeasesJson);
}

std::string GuestJson(const std::vector<NetworkView> &views) {
    return Flat("guests", views, GuestsJson);
}

std::string AdapterJson(const Host &host) {
    Json adapters = Json::array();
    for (const HostAdapter &adapter : host.adapters) {
        adapters.push_back({{"name", adapter.name},
                            {"network", NetworkOrNull(adapter.network)},
                            {"mapped", host.config.mappings.contains(adapter.name)},
                            {"up", adapter.running},
                            {"driver", TextOrNull(adapter.driver)}});
    }
    Json mappings = Json::array();
    for (const auto &[name, network] : host.config.mappings) {
        mappings.push_back({{"name", name}, {"network", NetworkOrNull(network)}});
    }
    return Document("bridging", {{"default", NetworkOrNull(host.config.defaultBridge)},
                                 {"adapters", adapters},
                                 {"mappings", mappings}});
}
