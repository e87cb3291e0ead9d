#include "apps/zelan/posix/harbrelctl/model/network.h"

#include <algorithm>

#include "lib/harbrel/harbrel.h"

constinit const std::array<ServiceRow, SERVICE_COUNT> SERVICES = {{
    {"bridge", HBL_SERVICE_BRIDGE, "zelan-bridge"},
    {"dhcp", HBL_SERVICE_DHCP, "zelan-dhcpd"},
    {"nat", HBL_SERVICE_NAT, "zelan-natd"},
    {"adapter", HBL_SERVICE_NETIFUP, "zelan-netifup"},
}};

bool NetworkState::IsRunning() const {
    return std::any_of(services.begin(), services.end(),
                       [](const ServiceState &state) { return state.running; });
}

bool NetworkState::AllConfiguredRun() const {
    return std::all_of(services.begin(), services.end(),
                       [](const ServiceState &state) { return state.running || !state.configured; });
}

std::string Paths::DhcpConf(int network) const {
    return networks + "/" + NetworkName(network) + "/dhcpd/dhcpd.conf";
}

std::string Paths::Leases(int network) const {
    return networks + "/" + NetworkName(network) + "/dhcpd/dhcpd.leases";
}

std::string Paths::NatConf(int network) const {
    return networks + "/" + NetworkName(network) + "/nat/nat.conf";
}

std::string Paths::Node(int network) const {
    return "/dev/" + NetworkName(network);
}

std::string Host::PidFile(int network, Service service) const {
    const bool byNumber = service == SERVICE_BRIDGE || service == SERVICE_NAT;
    return paths.pidFiles + "/" + programNames[service] + "-" +
           (byNumber ? std::to_string(network) : NetworkName(network)) + ".pid";
}

bool Host::HasAnything(int network) const {
    const NetworkState &state = networks[network];
    return !config.networks[network].IsEmpty() || state.IsRunning() || IsBridged(config, network);
}

NetworkKind KindOf(const Config &config, int network) {
    const NetworkConfig &settings = config.networks[network];
    const bool bridged = IsBridged(config, network);
    const bool nat = settings.IsOn(FIELD_NAT);
    const bool adapter = settings.IsOn(FIELD_ADAPTER);
    if (bridged) {
        return nat || adapter || settings.IsOn(FIELD_DHCP) ? KIND_CUSTOM : KIND_BRIDGED;
    }
    if (nat) {
        return KIND_NAT;
    }
    if (adapter) {
        return KIND_HOST_ONLY;
    }
    return settings.IsEmpty() ? KIND_NONE : KIND_CUSTOM;
}

const char *KindName(NetworkKind kind) {
    static constexpr const char *NAMES[] = {"none", "bridged", "host-only", "NAT", "custom"};
    return NAMES[kind];
}
