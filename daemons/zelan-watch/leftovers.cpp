#include "daemons/zelan-watch/leftovers.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <map>
#include <set>
#include <string_view>
#include <vector>

#include "daemons/bridgefilter/tcFilter.h"
#include "daemons/common/file.h"
#include "daemons/common/linkGroup.h"
#include "daemons/common/options.h"
#include "daemons/common/switch.h"
#include "daemons/zelan-watch/switches.h"

namespace {

// The daemons' ends of their cables to a switch, and of a router's uplink.
constexpr struct {
    std::string_view prefix;
    Service service;
} PORTS[] = {
    {"zelan-if", Service::NETIFUP},
    {"zelan-dh", Service::DHCP},
    {"zelan-nt", Service::NAT},
    {"zelan-up", Service::NAT},
};

bool ReadNumberBehind(std::string_view prefix, std::string_view name, int *network) {
    return name.starts_with(prefix) &&
           Options_Number(name.substr(prefix.size()), SWITCH_MAX_NETWORK, network);
}

// Whose an interface is; false for one that belongs to none of the daemons that may leave it behind.
bool FindDuty(const LinkInfo &link, Duty *duty) {
    if (link.kind != "veth" || (link.group != LINK_GROUP_CARRIER && link.group != LINK_GROUP_UPLINK)) {
        return false;
    }
    for (const auto &port : PORTS) {
        if (ReadNumberBehind(port.prefix, link.name, &duty->network)) {
            duty->service = port.service;
            return true;
        }
    }
    return false;
}

bool IsOurs(RtSocket *socket, int index) {
    LinkInfo link;
    return Link_Get(socket, index, &link) == 0 && LinkGroup_IsOurs(link.group);
}

// The tool asks by name whether the interface still exists.
void PutHostInterfaceAside(RtSocket *socket, int index) {
    char name[IFNAMSIZ];
    snprintf(name, sizeof name, "zelan-x%x", static_cast<unsigned>(index));
    Link_SetFlags(socket, index, 0, IFF_UP);
    Link_SetName(socket, index, name);
}

// Whether the file is to go: it names the dead process, or one that does not exist.
bool NamesDead(const FileDescriptor &file, pid_t dead) {
    char text[32];
    int process = 0;
    ssize_t size = read(file.get(), text, sizeof text);
    std::string_view line(text, size > 0 ? static_cast<size_t>(size) : 0);
    return Options_Number(line.substr(0, line.find('\n')), INT_MAX, &process) && process > 0 &&
           (process == dead || (kill(process, 0) != 0 && errno == ESRCH));
}

// A living successor's file is none of ours: it was acknowledged by this process, before it wrote the file.
void RemovePidFile(const std::string &path, pid_t dead) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return;
    }
    FileDescriptor folder(open(path.substr(0, slash + 1).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const char *name = path.c_str() + slash + 1;
    FileDescriptor file(openat(folder.get(), name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (file && NamesDead(file, dead)) {
        unlinkat(folder.get(), name, 0);
    }
    unlinkat(folder.get(), File_Unfinished(name).c_str(), 0);
}

bool IsStillSwitch(RtSocket *socket, const UnusedSwitch &unused) {
    LinkInfo link;
    int network = -1;
    return Link_Get(socket, unused.index, &link) == 0 && Switches_Is(link, &network) &&
           network == unused.network;
}

// Also when it cannot be told.
bool HasPorts(RtSocket *socket, const UnusedSwitch &unused) {
    bool found = false;
    return Link_ForEach(socket, unused.index, [&found](const LinkInfo &) { found = true; }) != 0 || found;
}

// The interfaces that are to go, of all that there are.
class Census {
  public:
    // An errno value.
    int Take(RtSocket *socket) {
        return Link_ForEach(socket, 0, [this](const LinkInfo &link) {
            // Everything else is only looked at for being a guest on a switch.
            if (LinkGroup_IsOurs(link.group) || link.master != 0) {
                links_.push_back(link);
            }
        });
    }

    void Condemn(const std::function<bool(const Duty &)> &isAlive) {
        Duty duty;
        for (const LinkInfo &link : links_) {
            if (link.group == LINK_GROUP_DEAD) {
                dead_.insert(link.index);
            } else if (FindDuty(link, &duty) && !isAlive(duty)) {
                condemned_.push_back(link.index);
            }
        }
        dead_.insert(condemned_.begin(), condemned_.end());
    }

    void FindUnusedSwitches(const std::function<bool(int)> &isNetworkInUse, LeftoversFound *found) const {
        std::set<int> withGuests;
        for (const LinkInfo &link : links_) {
            if (link.master != 0 && dead_.count(link.index) == 0) {
                withGuests.insert(link.master);
            }
        }
        int network = 0;
        for (const LinkInfo &link : links_) {
            if (!Switches_Is(link, &network) || isNetworkInUse(network)) {
                continue;
            }
            if (withGuests.count(link.index) != 0) {
                found->guestsRemain = true;
            } else {
                found->switches.push_back({network, link.index});
            }
        }
    }

    // An errno value.
    int Remove(RtSocket *socket) const {
        for (int index : condemned_) {
            Link_SetGroup(socket, index, LINK_GROUP_DEAD);
        }
        int error = dead_.empty() ? 0 : Link_DeleteGroup(socket, LINK_GROUP_DEAD);
        return error == ENODEV ? 0 : error;
    }

  private:
    std::vector<LinkInfo> links_;
    std::set<int> dead_;
    std::vector<int> condemned_;
};

}  // namespace

void Leftovers_PutAside(RtSocket *socket, const Traces &traces) {
    int host = traces.cleanUp.hostInterface;
    if (host != 0 && IsOurs(socket, host)) {
        PutHostInterfaceAside(socket, host);
    }
    for (int link : traces.cleanUp.links) {
        if (IsOurs(socket, link)) {
            Link_SetGroup(socket, link, LINK_GROUP_DEAD);
        }
    }
    if (traces.cleanUp.filters >= 0) {
        TcFilter_RemoveAll(socket, traces.cleanUp.filters);
    }
    RemovePidFile(traces.pidFile, traces.process);
}

LeftoversFound Leftovers_Remove(RtSocket *socket, const std::function<bool(const Duty &)> &isAlive,
                                const std::function<bool(int)> &isNetworkInUse) {
    LeftoversFound found;
    Census census;
    found.error = census.Take(socket);
    if (found.error != 0) {
        return found;
    }
    census.Condemn(isAlive);
    census.FindUnusedSwitches(isNetworkInUse, &found);
    found.error = census.Remove(socket);
    return found;
}

bool Leftovers_RemoveSwitches(RtSocket *socket, std::span<const UnusedSwitch> unused) {
    bool guestsRemain = false;
    bool anyCondemned = false;
    for (const UnusedSwitch &one : unused) {
        if (!IsStillSwitch(socket, one)) {
            continue;
        }
        if (HasPorts(socket, one)) {
            guestsRemain = true;
        } else if (Link_SetGroup(socket, one.index, LINK_GROUP_DEAD) == 0) {
            anyCondemned = true;
        }
    }
    if (anyCondemned) {
        Link_DeleteGroup(socket, LINK_GROUP_DEAD);
    }
    return !guestsRemain;
}
