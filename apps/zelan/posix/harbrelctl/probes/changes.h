// What has happened between two looks at the host; pure.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "apps/zelan/posix/harbrelctl/model/details.h"
#include "apps/zelan/posix/harbrelctl/model/surroundings.h"

struct Snapshot {
    Host host;
    std::vector<ForeignSubnet> foreign;
    std::map<int, Details> details;  // of the networks that have anything
};

struct Event {
    const char *kind = "";  // stable, for programs
    int network = NO_NETWORK;
    std::string subject;  // service, address, port, record
    std::string text;
    bool operator==(const Event &) const = default;
};

std::vector<Event> Compare(const Snapshot &before, const Snapshot &after);
