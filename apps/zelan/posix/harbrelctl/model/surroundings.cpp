#include "apps/zelan/posix/harbrelctl/model/surroundings.h"

#include <net/if.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "apps/zelan/posix/harbrelctl/model/processes.h"
#include "apps/zelan/posix/harbrelctl/model/text.h"

namespace {

constexpr Subnet LOOPBACK = {0x7f000000, 0xff000000};

bool IsNetworksOwn(const Host &host, const Link &link) {
    if (IsOurs(link.group)) {
        return true;
    }
    for (int network = 0; network < NETWORK_COUNT; network++) {
        const NetworkConfig &config = host.config.networks[network];
        if (config.IsOn(FIELD_ADAPTER) && EffectiveValue(network, config, FIELD_ADAPTER_NAME) == link.name) {
            return true;
        }
    }
    return false;
}

void AddSubnet(const Subnet &subnet, const std::string &owner, std::vector<ForeignSubnet> *subnets) {
    const bool known = std::any_of(subnets->begin(), subnets->end(),
                                   [&subnet](const ForeignSubnet &one) { return one.subnet == subnet; });
    if (!known && subnet.mask != 0 && !LOOPBACK.Contains(subnet.address)) {
        subnets->push_back({subnet, owner});
    }
}

struct SocketRow {
    bool tcp;
    const char *path;
    const char *state;  // of a socket that waits for others
};
constexpr SocketRow SOCKETS[] = {{true, "/proc/net/tcp", "0A"},
                                 {true, "/proc/net/tcp6", "0A"},
                                 {false, "/proc/net/udp", "07"},
                                 {false, "/proc/net/udp6", "07"}};

// Ports with the inode of their socket.
std::map<std::string, UsedPort> ListeningSockets() {
    std::map<std::string, UsedPort> sockets;
    for (const SocketRow &row : SOCKETS) {
        std::ifstream file(row.path);
        std::string line;
        std::getline(file, line);  // the legend
        while (std::getline(file, line)) {
            std::istringstream words(line);
            std::string slot, local, remote, state, skipped, inode;
            words >> slot >> local >> remote >> state >> skipped >> skipped >> skipped >> skipped >>
                skipped >> inode;
            const size_t colon = local.find(':');
            if (state != row.state || colon == std::string::npos) {
                continue;
            }
            const unsigned long port = strtoul(local.c_str() + colon + 1, nullptr, 16);
            sockets[inode] = {row.tcp, static_cast<uint16_t>(port), ""};
        }
    }
    return sockets;
}

// The inodes of the sockets that a process holds.
std::vector<std::string> SocketsOf(pid_t pid) {
    constexpr std::string_view PREFIX = "socket:[";
    std::vector<std::string> inodes;
    std::error_code error;
    const std::string folder = "/proc/" + std::to_string(pid) + "/fd";
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code gone;
        const std::string target = std::filesystem::read_symlink(entry->path(), gone).string();
        if (target.starts_with(PREFIX)) {
            inodes.push_back(target.substr(PREFIX.size(), target.size() - PREFIX.size() - 1));
        }
    }
    return inodes;
}

std::vector<pid_t> AllProcesses() {
    std::vector<pid_t> all;
    std::error_code error;
    for (std::filesystem::directory_iterator entry("/proc", error), end; !error && entry != end;
         entry.increment(error)) {
        const std::optional<uint32_t> pid = ParseNumber(entry->path().filename().string(), INT32_MAX);
        if (pid) {
            all.push_back(static_cast<pid_t>(*pid));
        }
    }
    return all;
}

std::string CommandName(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    std::getline(file, name);
    return Printable(name);
}

// Those of forwards are held by a NAT daemon, or by the watcher where that had to wait for them.
bool HoldsForwards(const std::string &owner) {
    return owner.starts_with(SERVICES[SERVICE_NAT].program) || owner.starts_with("zelan-watch");
}

std::vector<UsedPort> ForeignPorts() {
    std::map<std::string, UsedPort> sockets = ListeningSockets();
    for (const pid_t pid : AllProcesses()) {
        for (const std::string &inode : SocketsOf(pid)) {
            const auto socket = sockets.find(inode);
            if (socket != sockets.end() && socket->second.owner.empty()) {
                socket->second.owner = CommandName(pid) + " (" + std::to_string(pid) + ")";
            }
        }
    }
    std::vector<UsedPort> ports;
    for (auto &[inode, port] : sockets) {
        if (!HoldsForwards(port.owner)) {
            port.owner = port.owner.empty() ? "a process of the host" : port.owner;
            ports.push_back(port);
        }
    }
    return ports;
}

}  // namespace

void AddMissingAdapters(const KernelView &kernel, Host *host) {
    for (const Link &link : kernel.links) {
        const bool known = std::any_of(host->adapters.begin(), host->adapters.end(),
                                       [&link](const HostAdapter &one) { return one.name == link.name; });
        if (known || !link.ethernet || link.master != 0 || IsOurs(link.group) ||
            link.name.starts_with("zelan")) {
            continue;
        }
        const auto mapping = host->config.mappings.find(link.name);
        const int network =
            mapping != host->config.mappings.end() ? mapping->second : host->config.defaultBridge;
        host->adapters.push_back({link.name, "", network, (link.flags & IFF_RUNNING) != 0});
        if (network != NO_NETWORK) {
            host->networks[network].adapters.push_back(link.name);
        }
    }
    std::sort(host->adapters.begin(), host->adapters.end(),
              [](const HostAdapter &a, const HostAdapter &b) { return a.name < b.name; });
}

std::vector<ForeignSubnet> ForeignSubnets(const Host &host, const KernelView &kernel) {
    std::vector<ForeignSubnet> subnets;
    for (const LinkAddress &address : kernel.addresses) {
        const Link *const link = kernel.Find(address.link);
        if (link != nullptr && !IsNetworksOwn(host, *link)) {
            AddSubnet(address.subnet,
                      (link->kind == "bridge" ? "the bridge " : "the interface ") + link->name, &subnets);
        }
    }
    for (const Route &route : kernel.routes) {
        const Link *const link = kernel.Find(route.link);
        if (link != nullptr && !IsNetworksOwn(host, *link)) {
            AddSubnet(route.destination, "a route by " + link->name, &subnets);
        }
    }
    return subnets;
}

Surroundings ReadSurroundings(const Host &host, const KernelView &kernel) {
    return {ForeignSubnets(host, kernel), ForeignPorts()};
}
