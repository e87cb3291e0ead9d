// Which of the host's adapters belong to the network, and the cables to them as they come and go.
#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "daemons/common/link.h"
#include "daemons/zelan-bridge/cable.h"

// Either every Ethernet adapter but those named, or those named alone. Case is not significant.
struct AdapterRule {
    bool takesAll = false;
    std::vector<std::string> names;
};

// Whether the rule takes this interface. Interfaces of the networks themselves (zelan...) are never taken,
// nor is, where all are taken, one that is a port of a bridge or bond: that one speaks for it, and guests
// attach to the switch by such ports.
bool Adapters_Takes(const AdapterRule &rule, const LinkInfo &link);

class CableSet {
  public:
    CableSet(int network, AdapterRule rule) : network_(network), rule_(std::move(rule)) {}

    // Opens the sockets and connects every adapter that is there. False after a line in the log.
    bool Begin();

    // Takes the kernel's announcements. Adapters that are gone lose their cable at once; changed ones are
    // only noted, since an interface that is being set up is seldom what it will be a moment later.
    void TakeAnnouncements();

    // Looks at the noted ones as they are now, and connects those that the rule still takes.
    void TakeNoted();
    bool HasNoted() const { return !noted_.empty(); }

    int announcements() const { return announcements_.descriptor(); }
    const std::vector<std::unique_ptr<Cable>> &cables() const { return cables_; }

    // Called with each cable that is new.
    std::function<void(Cable *)> onConnect = [](Cable *) {};

  private:
    void TakeAnnouncement(const nlmsghdr *message);
    void Consider(const LinkInfo &link);
    void ConsiderAll();
    void Remove(int adapterIndex);
    Cable *Find(int adapterIndex);
    int AdapterOf(int tapIndex) const;  // 0 for a TAP of no cable

    int network_;
    AdapterRule rule_;
    RtSocket requests_;
    RtSocket announcements_;
    std::vector<std::unique_ptr<Cable>> cables_;
    std::set<int> noted_;
};
