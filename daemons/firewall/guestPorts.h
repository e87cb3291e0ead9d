// What guests may not say to each other on host-only and NAT networks: that they are the router (router
// advertisements of IPv6) or the DHCP server. Ports are told by their index; those of our own daemons and of
// other bridges are never among them.
#pragma once

#include <optional>
#include <set>

class GuestPorts {
  public:
    // Bars exactly these ports from that, by the table `bridge zelan`, which goes with the last. A refusal of
    // the kernel's costs one line in the log.
    void Bar(const std::set<int> &ports);

    // Makes the table anew, which somebody has removed.
    void Restore();

  private:
    int Change(const std::set<int> &ports);
    int Rebuild(const std::set<int> &ports);

    std::optional<std::set<int>> barred_;  // empty: what a predecessor has left is not known
    bool hasComplained_ = false;
};
