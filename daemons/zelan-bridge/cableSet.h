// The cables to the adapters of one network, as the adapters come and go.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <vector>

#include "daemons/zelan-bridge/adapters.h"
#include "daemons/zelan-bridge/cable.h"

class CableSet {
  public:
    CableSet(int network, AdapterRule rule) : network_(network), rule_(std::move(rule)) {}

    // Opens the sockets and connects every adapter that is there. False after a line in the log.
    bool Begin();

    // Whether filters of ours may be on adapters, now or once others have come.
    bool MayHaveFilters() const;

    // Follows the host's adapters for good. To be called by the process that stays.
    [[noreturn]] void Run();

  private:
    using Clock = std::chrono::steady_clock;

    // Takes the kernel's announcements. Adapters that are gone or taken no longer lose their cable at once;
    // other changes are only noted, since an interface that is being set up is seldom what it will be a
    // moment later.
    void TakeAnnouncements();

    // Looks at the host as it is now: connects what the rule takes and gives up what it takes no longer.
    void TakeNoted();

    void PlanRetry();
    void TakeAnnouncement(const nlmsghdr *message);
    void GiveUpUntaken(const HostLinks &links);
    void ConnectTaken(const HostLinks &links);
    void Connect(const LinkInfo &link, const HostLinks &links);
    void Remove(int adapterIndex);
    Cable *Find(int adapterIndex);
    int AdapterOf(int tapIndex) const;  // 0 for a TAP of no cable

    int network_;
    AdapterRule rule_;
    RtSocket requests_;
    RtSocket announcements_;
    DataPaths paths_;
    std::vector<std::unique_ptr<Cable>> cables_;
    bool noted_ = false;    // something has changed
    bool changed_ = false;  // a connected adapter has
    // Adapters that could not be connected, as they were then: tried again once they have changed, and all
    // after a pause.
    std::map<int, LinkInfo> refused_;
    std::chrono::milliseconds pause_ = {};
    Clock::time_point retry_ = Clock::time_point::max();
};
