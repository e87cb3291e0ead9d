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

#include "daemons/common/rtnetlink.h"

// The switches in question.
struct GuardedSwitches {
    std::set<std::string> names;
    std::set<int> guests;  // the ports of guests on them, by their indexes: for kernels that tell ports alone

    bool operator==(const GuardedSwitches &) const = default;
};

class GuestPorts {
  public:
    // Guards exactly these, by the table `bridge zelan`, which goes with the last. What the kernel refuses
    // costs one line in the log.
    void Guard(const GuardedSwitches &switches);

    // Makes the table anew, which somebody has removed.
    void Restore();

  private:
    std::set<std::string> KeysOf(const GuardedSwitches &switches) const;
    int Change(const GuardedSwitches &switches);
    int Rebuild(const GuardedSwitches &switches);
    int TryRebuild(RtSocket *socket, const GuardedSwitches &switches) const;

    std::optional<GuardedSwitches> guarded_;  // empty: what a predecessor has left is not known
    size_t means_ = 0;                        // by which the kernel tells guests
    bool hasComplained_ = false;
};

// Whether guests' DNS questions carry the lowest byte of the index of their port as type of service.
bool GuestPorts_MarkQuestions();
