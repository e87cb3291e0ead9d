#include <algorithm>
#include <ctime>

#include "apps/zelan/posix/harbrelctl/output/networks.h"

namespace {

constexpr size_t TIME_SIZE = 32;

Cell ServicesCell(const NetworkState &state, bool running) {
    std::string text;
    Tone tone = running ? TONE_GOOD : TONE_PLAIN;
    for (int service = 0; service < SERVICE_COUNT; service++) {
        const ServiceState &one = state.services[service];
        if (running ? one.running : one.configured) {
            text += (text.empty() ? "" : ",") + std::string(SERVICES[service].name);
        }
    }
    if (running && !state.AllConfiguredRun()) {
        tone = TONE_BAD;
    }
    return {text, tone};
}

std::string SubnetCell(const NetworkConfig &config) {
    const std::optional<Subnet> subnet = config.NetworkSubnet();
    return subnet ? SubnetText(*subnet) : "";
}

std::string Bytes(uint64_t count) {
    return std::to_string(count);
}

}  // namespace

std::string LocalTime(time_t moment) {
    tm parts = {};
    localtime_r(&moment, &parts);
    char text[TIME_SIZE];
    return {text, strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts)};
}

std::string UtcTime(time_t moment) {
    tm parts = {};
    gmtime_r(&moment, &parts);
    char text[TIME_SIZE];
    return {text, strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

std::string NetworkOrNone(int network) {
    return network == NO_NETWORK ? "none" : NetworkName(network);
}

Table ListTable(const Host &host, const std::vector<NetworkView> &views) {
    Table table = {{"NETWORK", "KIND", "SUBNET", "SERVICES", "RUNNING", "GUESTS", "LEASES", "FORWARDS"}, {}};
    for (const NetworkView &view : views) {
        const NetworkState &state = host.networks[view.number];
        const NetworkConfig &config = host.config.networks[view.number];
        table.rows.push_back(
            {NetworkName(view.number), KindName(KindOf(host.config, view.number)), SubnetCell(config),
             ServicesCell(state, false), ServicesCell(state, true), std::to_string(PortCount(view.details)),
             std::to_string(view.details.leases.size()), std::to_string(config.forwards.size())});
    }
    return table;
}

Table ForwardTable(const Host &host, const std::vector<int> &networks) {
    Table table = {{"NETWORK", "PROTOCOL", "PORT", "GUEST", "NOTE"}, {}};
    for (const int network : networks) {
        for (const Forward &forward : host.config.networks[network].forwards) {
            table.rows.push_back(
                {NetworkName(network), forward.tcp ? "tcp" : "udp", std::to_string(forward.hostPort),
                 AddressText(forward.guest) + ":" + std::to_string(forward.guestPort), forward.note});
        }
    }
    return table;
}

Table ReservationTable(const Host &host, const std::vector<int> &networks) {
    Table table = {{"NETWORK", "ADDRESS", "MAC"}, {}};
    for (const int network : networks) {
        for (const Reservation &tie : host.config.networks[network].reservations) {
            table.rows.push_back({NetworkName(network), AddressText(tie.address), tie.mac});
        }
    }
    return table;
}

Table AdapterTable(const Host &host) {
    Table table = {{"ADAPTER", "NETWORK", "MAPPED", "STATE", "DRIVER"}, {}};
    for (const HostAdapter &adapter : host.adapters) {
        table.rows.push_back({adapter.name, NetworkOrNone(adapter.network),
                              host.config.mappings.contains(adapter.name) ? "yes" : "default",
                              adapter.running ? "up" : "down", adapter.driver});
    }
    for (const auto &[name, network] : host.config.mappings) {
        const bool exists =
            std::any_of(host.adapters.begin(), host.adapters.end(),
                        [&mapped = name](const HostAdapter &adapter) { return adapter.name == mapped; });
        if (!exists) {
            table.rows.push_back({name, NetworkOrNone(network), "yes", "missing", ""});
        }
    }
    return table;
}

Table LeaseTable(const std::vector<NetworkView> &views) {
    Table table = {{"NETWORK", "ADDRESS", "MAC", "NAME", "FROM", "UNTIL", "STATIC"}, {}};
    for (const NetworkView &view : views) {
        for (const Lease &lease : view.details.leases) {
            table.rows.push_back({NetworkName(view.number), AddressText(lease.address), lease.mac, lease.name,
                                  lease.from ? LocalTime(*lease.from) : "",
                                  lease.until ? LocalTime(*lease.until) : "for ever",
                                  lease.reserved ? "yes" : "no"});
        }
    }
    return table;
}

Table GuestTable(const std::vector<NetworkView> &views) {
    Table table = {{"NETWORK", "PORT", "MAC", "ADDRESS", "NAME", "RECEIVED", "SENT"}, {}};
    for (const NetworkView &view : views) {
        for (const Guest &guest : view.details.guests) {
            table.rows.push_back({NetworkName(view.number), guest.port, guest.mac,
                                  guest.address ? AddressText(*guest.address) : "", guest.name,
                                  Bytes(guest.receivedBytes), Bytes(guest.sentBytes)});
        }
    }
    return table;
}
