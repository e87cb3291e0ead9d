#include "daemons/zelan-bridge/adapters.h"

#include <net/if_arp.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>

#include "daemons/common/linkGroup.h"

namespace {

// VLANs on VLANs and bridges on bonds are as deep as interfaces stand on each other.
constexpr int MAX_DEPTH = 4;

// Without regard to case, as the library names adapters.
bool IsNamed(const AdapterRule &rule, const std::string &name) {
    return std::any_of(rule.names.begin(), rule.names.end(), [&name](const std::string &listed) {
        return strcasecmp(listed.c_str(), name.c_str()) == 0;
    });
}

bool IsReal(const LinkInfo &link, const HostLinks &links, int depth);

bool HasRealPort(const LinkInfo &bridge, const HostLinks &links, int depth) {
    return std::any_of(links.byIndex.begin(), links.byIndex.end(), [&](const auto &entry) {
        return entry.second.master == bridge.index && IsReal(entry.second, links, depth);
    });
}

bool IsRealVlan(const LinkInfo &vlan, const HostLinks &links, int depth) {
    const LinkInfo *lower = vlan.lowerIsElsewhere ? nullptr : links.Find(vlan.lower);
    return vlan.lowerIsElsewhere || (lower != nullptr && IsReal(*lower, links, depth));
}

// Whether it leads out of the host.
bool IsReal(const LinkInfo &link, const HostLinks &links, int depth) {
    if (LinkGroup_IsOurs(link.group) || depth == 0) {
        return false;
    }
    if (link.kind == "bridge") {
        return HasRealPort(link, links, depth - 1);
    }
    if (link.kind == "vlan") {
        return IsRealVlan(link, links, depth - 1);
    }
    if (link.kind == "veth") {
        return links.hostIsContainer && link.lowerIsElsewhere;
    }
    return link.kind.empty() || link.kind == "bond" || link.kind == "team";
}

bool IsGuest(const LinkInfo &link, const HostLinks &links) {
    const LinkInfo *master = links.Find(link.master);
    return master != nullptr && LinkGroup_IsOurs(master->group);
}

// The kernel shows the settings of its devices' queues in the first namespace alone.
bool IsInContainer() {
    return access("/proc/sys/net/core/somaxconn", F_OK) == 0 &&
           access("/proc/sys/net/core/netdev_max_backlog", F_OK) != 0;
}

}  // namespace

const LinkInfo *HostLinks::Find(int index) const {
    auto place = byIndex.find(index);
    return place == byIndex.end() ? nullptr : &place->second;
}

std::vector<uint16_t> HostLinks::VlansOn(int index) const {
    std::vector<uint16_t> vlans;
    for (const auto &[own, link] : byIndex) {
        if (link.kind == "vlan" && link.lower == index && !link.lowerIsElsewhere) {
            vlans.push_back(link.vlan);
        }
    }
    return vlans;
}

bool HostLinks_Read(RtSocket *socket, HostLinks *links) {
    links->hostIsContainer = IsInContainer();
    links->byIndex.clear();
    return Link_ForEach(socket, 0, [links](const LinkInfo &link) { links->byIndex[link.index] = link; }) == 0;
}

bool Adapters_Takes(const AdapterRule &rule, const LinkInfo &link, const HostLinks &links) {
    constexpr char OWN_PREFIX[] = "zelan";
    if (link.type != ARPHRD_ETHER || (link.flags & IFF_LOOPBACK) != 0 || LinkGroup_IsOurs(link.group) ||
        IsGuest(link, links)) {
        return false;
    }
    bool named = IsNamed(rule, link.name);
    if (!rule.takesAll) {
        return named;
    }
    bool skipped = strncasecmp(link.name.c_str(), OWN_PREFIX, sizeof OWN_PREFIX - 1) == 0;
    return !named && !skipped && link.master == 0 && IsReal(link, links, MAX_DEPTH);
}
