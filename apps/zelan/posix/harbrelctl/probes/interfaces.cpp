// The links that are interfaces: the switch, the host's own, the adapters of a bridge.
#include <net/if.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "apps/zelan/posix/harbrelctl/probes/finding.h"

namespace {

bool IsUp(const Link &link) {
    return (link.flags & IFF_UP) != 0;
}

std::string RestartCommand(int network) {
    return "harbrelctl restart " + NetworkName(network);
}

bool HasSetting(const std::string &path, char value) {
    std::ifstream file(path);
    char found = 0;
    return !(file >> found) || found == value;  // what is not there says nothing
}

bool IsWireless(const std::string &name) {
    const std::string folder = "/sys/class/net/" + name;
    return access((folder + "/wireless").c_str(), F_OK) == 0 ||
           access((folder + "/phy80211").c_str(), F_OK) == 0;
}

std::optional<Finding> ProbeAdapter(const Patient &patient, int network, const std::string &name) {
    const Link *const link = patient.kernel.Find(name);
    const std::string elsewhere = "harbrelctl adapter move " + name + " none";
    if (link == nullptr) {
        return Finding{network, "adapter-missing", "the host has no adapter " + name, elsewhere};
    }
    if (IsWireless(name)) {
        return Finding{network, "adapter-wireless", name + " is wireless and carries no frames of guests",
                       elsewhere};
    }
    if (!IsUp(*link)) {
        return Finding{network, "adapter-down", name + " is down", "ip link set " + name + " up"};
    }
    if (!link->carrier) {
        return Finding{network, "adapter-no-carrier", name + " has no carrier: no cable, or a dead far end",
                       ""};
    }
    return std::nullopt;
}

}  // namespace

std::optional<Finding> ProbeSwitch(const Patient &patient, int network) {
    if (!patient.host.networks[network].IsRunning()) {
        return std::nullopt;
    }
    const std::string name = SwitchName(network);
    const Link *const bridge = patient.kernel.Find(name);
    if (bridge == nullptr || bridge->kind != "bridge") {
        return Finding{network, "switch-missing", "there is no switch " + name, RestartCommand(network)};
    }
    if (!IsUp(*bridge)) {
        return Finding{network, "switch-down", name + " is down", RestartCommand(network)};
    }
    for (const Link &port : patient.kernel.links) {
        if (port.master == bridge->index && !IsUp(port)) {
            return Finding{network, "port-down", "the port " + port.name + " of " + name + " is down",
                           "ip link set " + port.name + " up"};
        }
    }
    return std::nullopt;
}

std::optional<Finding> ProbeInterface(const Patient &patient, int network) {
    const NetworkConfig &config = patient.host.config.networks[network];
    if (!config.IsOn(FIELD_ADAPTER)) {
        return std::nullopt;
    }
    const std::string name = EffectiveValue(network, config, FIELD_ADAPTER_NAME).value_or("");
    const Link *const link = patient.kernel.Find(name);
    if (link == nullptr) {
        return Finding{network, "interface-missing", "there is no interface " + name,
                       RestartCommand(network)};
    }
    if (!IsUp(*link)) {
        return Finding{network, "interface-down", name + " is down", RestartCommand(network)};
    }
    const auto wanted = EffectiveAddress(network, config, FIELD_ADAPTER_ADDRESS);
    const std::optional<Subnet> subnet = config.NetworkSubnet();
    const auto &addresses = patient.kernel.addresses;
    const bool fits = std::any_of(addresses.begin(), addresses.end(), [&](const LinkAddress &address) {
        return address.link == link->index && address.address == wanted && address.subnet == subnet;
    });
    if (!fits && wanted && subnet) {
        return Finding{network, "interface-address",
                       name + " has not the address " + AddressText(*wanted) + "/" +
                           std::to_string(PrefixOf(subnet->mask)),
                       ApplyCommand(network)};
    }
    return std::nullopt;
}

std::optional<Finding> ProbeAdapters(const Patient &patient, int network) {
    std::vector<std::string> names = patient.host.networks[network].adapters;
    for (const std::string &mapped : MappedAdapters(patient.host.config, network)) {
        if (std::find(names.begin(), names.end(), mapped) == names.end()) {
            names.push_back(mapped);
        }
    }
    for (const std::string &name : names) {
        const std::optional<Finding> finding = ProbeAdapter(patient, network, name);
        // The default network takes what comes: one adapter that works is enough.
        if (finding && (network != patient.host.config.defaultBridge || names.size() == 1)) {
            return finding;
        }
    }
    if (names.empty() && IsBridged(patient.host.config, network)) {
        return Finding{network, "adapter-none", "there is no adapter to bridge to",
                       "harbrelctl adapter list"};
    }
    return std::nullopt;
}

// What comes from guests has to be let out, and what comes back has to be let in.
std::optional<Finding> ProbeForwarding(const Patient &patient, int network) {
    if (!patient.host.config.networks[network].IsOn(FIELD_NAT)) {
        return std::nullopt;
    }
    const std::string folder = "/proc/sys/net/ipv4/conf/";
    std::vector<std::string> names = {"zelan-up" + std::to_string(network)};
    for (const Route &route : patient.kernel.routes) {
        const Link *const link = patient.kernel.Find(route.link);
        if (route.destination.mask == 0 && link != nullptr) {
            names.push_back(link->name);
        }
    }
    for (const std::string &name : names) {
        if (!HasSetting(folder + name + "/forwarding", '1')) {
            return Finding{network, "forwarding-off", "the host does not forward what comes in by " + name,
                           "sysctl -w net.ipv4.conf." + name + ".forwarding=1"};
        }
    }
    return std::nullopt;
}

std::optional<Finding> ProbeLeases(const Patient &patient, int network) {
    const NetworkConfig &config = patient.host.config.networks[network];
    const auto first = EffectiveAddress(network, config, FIELD_RANGE_FIRST);
    const auto last = EffectiveAddress(network, config, FIELD_RANGE_LAST);
    if (!config.IsOn(FIELD_DHCP) || !first || !last) {
        return std::nullopt;
    }
    const std::vector<Lease> &leases = patient.details[static_cast<size_t>(network)].leases;
    const auto taken = std::count_if(leases.begin(), leases.end(), [&](const Lease &lease) {
        return lease.address >= *first && lease.address <= *last;
    });
    if (taken <= *last - *first) {
        return std::nullopt;
    }
    return Finding{network, "range-full",
                   "all " + std::to_string(taken) + " addresses from " + AddressText(*first) + " to " +
                       AddressText(*last) + " are leased",
                   "harbrelctl set " + NetworkName(network) + " range=FIRST-LAST"};
}
