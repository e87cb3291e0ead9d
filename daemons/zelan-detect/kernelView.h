// Links, addresses and routes as the kernel announces them.
#pragma once

#include <map>
#include <string>

#include "daemons/common/rtnetlink.h"
#include "daemons/zelan-detect/facts.h"

class KernelView {
  public:
    // Opens the sockets; announcements count from here on. False after a line in the log.
    bool Open();

    // Asks for everything. False after a line in the log.
    bool ReadAll(FactMap *facts);

    // Applies the announcements that are waiting. False when they do not tell all, so that everything has to
    // be read again: some were lost, or a link went down, with which IPv4 routes go unannounced.
    bool Follow(Facts *facts);

    int announcements() const { return announcements_.descriptor(); }

  private:
    struct Statement {
        bool valid = false;
        bool removed = false;
        FactKey key;
        std::string text;
        bool linkWentDown = false;
    };

    Statement Read(const nlmsghdr *message);
    Statement ReadLink(const nlmsghdr *message);
    Statement ReadAddress(const nlmsghdr *message);
    Statement ReadRoute(const nlmsghdr *message);
    std::string LinkName(int index) const;

    RtSocket requests_;
    RtSocket announcements_;
    std::map<int, std::string> linkNames_;
};
