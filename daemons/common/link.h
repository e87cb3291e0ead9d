// Interfaces of the current network namespace: what they are, and what the daemons do with them.
#pragma once

#include <net/if.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string>

#include "daemons/common/rtnetlink.h"

using MacAddress = std::array<uint8_t, 6>;

struct LinkInfo {
    int index = 0;
    unsigned type = 0;   // ARPHRD_
    unsigned flags = 0;  // IFF_
    int master = 0;      // index of the bridge or bond that it is a port of, 0 when of none
    uint32_t group = 0;
    uint32_t mtu = 0;
    MacAddress mac = {};
    std::string name;
    std::string kind;               // of a virtual interface, as "bridge" or "veth"; else empty
    int lower = 0;                  // index of the interface that it stands on or is joined to, 0 for none
    bool lowerIsElsewhere = false;  // that one is in another network namespace
    uint16_t vlan = 0;              // of a VLAN interface its number
};

// Reads a link message; false when it is no RTM_NEWLINK or RTM_DELLINK of an interface itself. The messages
// that a bridge sends about its ports look alike but have a family of their own and are refused here.
bool Link_Parse(const nlmsghdr *message, LinkInfo *link);

// Looks an interface up; the errno value of the refusal, ENODEV when there is none.
int Link_Get(RtSocket *socket, int index, LinkInfo *link);

// The same by its name. Unlike the ioctls behind if_nametoindex it never makes the kernel look for a module
// that might bring an interface of that name.
int Link_Find(RtSocket *socket, const char *name, LinkInfo *link);

// Shows every interface, or with `master` the ports of that bridge. An errno value.
int Link_ForEach(RtSocket *socket, int master, const std::function<void(const LinkInfo &)> &visit);

// Changes the flags in `mask` to those in `flags`. An errno value, like all below.
int Link_SetFlags(RtSocket *socket, int index, unsigned flags, unsigned mask);
int Link_SetMaster(RtSocket *socket, int index, int master);
int Link_SetMtu(RtSocket *socket, int index, uint32_t mtu);
int Link_SetMac(RtSocket *socket, int index, const MacAddress &mac);
int Link_SetGroup(RtSocket *socket, int index, uint32_t group);
int Link_SetName(RtSocket *socket, int index, const char *name);  // older kernels: only of one that is down
int Link_Delete(RtSocket *socket, int index);

// Removes all interfaces of a group in one step.
int Link_DeleteGroup(RtSocket *socket, uint32_t group);

// Two joined interfaces, both down. The first is a port of `master` (0 for none), the second stands in the
// namespace of `peerNamespace`, or here when that is -1.
struct VethPlan {
    const char *name;
    const char *peerName;
    int master;
    int peerNamespace;
    uint32_t group;  // LINK_GROUP_ of the first
    uint32_t peerGroup;
};
int Link_MakeVeth(RtSocket *socket, const VethPlan &plan);

// Keeps IPv6 off an interface: no address, no neighbour traffic, and should somebody turn it on all the same,
// no route or address by anybody's router advertisement. To be called before the interface is up, in the
// namespace where it stands; "default" stands for all that come later. False after a line in the log.
bool Link_ForbidIpv6(const char *name);

// Whether a text can name an interface.
bool Link_IsValidName(const char *name);
