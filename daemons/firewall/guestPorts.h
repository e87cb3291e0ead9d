// What guests may not do to each other on host-only and NAT networks: pose as the router (router
// advertisements of IPv6) or as the DHCP server, take all leases, or ask DNS questions in another's name.
//
// A guest is told by the port of the switch that its frames come in by, which it cannot forge: every port
// that is not of LINK_GROUP_CARRIER.
#pragma once

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "daemons/common/rtnetlink.h"

// The networks in question.
struct GuardedNetworks {
    std::vector<int> networks;  // ascending
    std::set<int>
        guests;  // the ports of guests on their switches, by index: for kernels that tell ports alone

    bool operator==(const GuardedNetworks &) const = default;
};

class GuestPorts {
  public:
    // Guards exactly these, by the table `bridge zelan`, which goes with the last. What the kernel refuses
    // costs one line in the log.
    void Guard(const GuardedNetworks &guarded);

    // Of a table that somebody may have removed: the next call of Guard makes it anew.
    void Distrust() { guarded_.reset(); }

  private:
    std::set<std::string> KeysOf(const GuardedNetworks &guarded) const;
    int Change(const GuardedNetworks &guarded);
    int Rebuild(const GuardedNetworks &guarded);
    int TryRebuild(RtSocket *socket, const GuardedNetworks &guarded) const;

    std::optional<GuardedNetworks> guarded_;  // empty: what a predecessor has left is not known
    size_t means_ = 0;                        // by which the kernel tells guests
    bool hasComplained_ = false;
};

// Whether guests' DNS questions carry the lowest byte of the index of their port as type of service.
bool GuestPorts_MarkQuestions();
