// What dead daemons have left in the kernel and in files.
#pragma once

#include <functional>
#include <span>
#include <vector>

#include "daemons/common/link.h"
#include "daemons/common/service.h"
#include "daemons/common/traces.h"

// Takes away at once what would be taken for a living daemon's: the host's interface loses its name, its
// addresses and its being up, and the PID file goes if it still names the dead process or no process at all.
// The interfaces are put aside, to be removed with others in one step.
void Leftovers_PutAside(RtSocket *socket, const Traces &traces);

struct UnusedSwitch {
    int network = -1;
    int index = 0;
};

// What a removal found.
struct LeftoversFound {
    int error = 0;                       // errno value, with which something has to be done again later
    bool guestsRemain = false;           // on switches that nobody else needs
    std::vector<UnusedSwitch> switches;  // that nobody needs, not removed yet
};

// Removes everything that is put aside, and what else is ours but belongs to no duty of a living daemon. The
// time that the kernel takes depends little on how much it is; switches, of which each takes it some 16 ms
// with all interfaces of the host locked, are left to be removed a few at a time.
LeftoversFound Leftovers_Remove(RtSocket *socket, const std::function<bool(const Duty &)> &isAlive,
                                const std::function<bool(int)> &isNetworkInUse);

// Removes switches in one step. False when one stays, since a guest has been attached in the meantime.
bool Leftovers_RemoveSwitches(RtSocket *socket, std::span<const UnusedSwitch> unused);
