// The switches, and the guests on them.
#pragma once

#include <functional>
#include <map>
#include <set>

#include "daemons/common/link.h"
#include "daemons/common/rtnetlink.h"

// Whether an interface is the switch of a network.
bool Switches_Is(const LinkInfo &link, int *network);

// Follows who is attached to a switch and is none of ours. Of the kernel's announcements it wakes for those
// of bridge ports alone: a start of many networks makes thousands of others.
class Guests {
  public:
    // False after a line in the log.
    bool Begin(RtSocket *requests);

    // Takes the announcements that are waiting. True when somebody has left a switch, or may have.
    bool TakeNews(RtSocket *requests);

    // The ports, by their indexes, of guests on the networks that `isWanted`.
    std::set<int> On(const std::function<bool(int)> &isWanted) const;

    int descriptor() const { return news_.descriptor(); }

  private:
    void Survey(RtSocket *requests);
    void Consider(RtSocket *requests, int port);

    RtSocket news_;
    std::map<int, int> networks_;  // by port
};
