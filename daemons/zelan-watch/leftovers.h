// What dead daemons have left in the kernel and in files.
#pragma once

#include <functional>

#include "daemons/common/link.h"
#include "daemons/common/service.h"
#include "daemons/common/traces.h"

// Takes away at once what would be taken for a living daemon's: the host's interface loses its name, its
// addresses and its being up, and the PID file goes if it still names the dead process or no process at all.
// The interfaces are put aside, to be removed with others in one step.
void Leftovers_PutAside(RtSocket *socket, const Traces &traces);

// What a removal found.
struct LeftoversFound {
    bool complete = false;      // else something has to be done again later
    bool guestsRemain = false;  // switches that nobody needs but guests
};

// Removes everything that is put aside, and what else is ours but belongs to no duty of a living daemon. The
// time that the kernel takes depends little on how much it is.
LeftoversFound Leftovers_Remove(RtSocket *socket, const std::function<bool(const Duty &)> &isAlive,
                                const std::function<bool(int)> &isNetworkInUse);
