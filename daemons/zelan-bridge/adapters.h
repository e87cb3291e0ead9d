// Which of the host's interfaces count as adapters of a network.
//
// A network that bridges by default gets what joins this host to the world: Ethernet devices, bonds and teams
// of them, VLANs on them, and bridges that have such a device as a port. It never gets what only joins
// machines within the host: bridges of containers, TAPs, macvlans, loose pairs, and ports of other bridges.
// An adapter that an administrator has named is taken whatever it is.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "daemons/common/link.h"

// Either every real adapter but those named, or those named alone. Case is not significant.
struct AdapterRule {
    bool takesAll = false;
    std::vector<std::string> names;
};

// All interfaces of the host at one moment.
struct HostLinks {
    std::map<int, LinkInfo> byIndex;
    // Whether the host is itself a container. Its own adapter then is a veth whose other end is outside;
    // elsewhere such an interface is the end of a cable to a container.
    bool hostIsContainer = false;

    const LinkInfo *Find(int index) const;
    // The numbers of the VLANs that the host has on an interface.
    std::vector<uint16_t> VlansOn(int index) const;
};

// False when the kernel did not show all of them.
bool HostLinks_Read(RtSocket *socket, HostLinks *links);

// Whether the rule takes this one of the links. Interfaces of ours, told by their group, are never taken, nor
// what is plugged into a switch of ours. Where all are taken, names beginning with "zelan" are left out, as
// the library leaves them out.
bool Adapters_Takes(const AdapterRule &rule, const LinkInfo &link, const HostLinks &links);
