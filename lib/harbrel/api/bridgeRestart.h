// Restarting the bridge service of a network within a change that may be rolled back.
#pragma once

#include <cstdint>

#include "lib/harbrel/base/hblLog.h"

// One network whose bridge service a change restarts.
struct BridgeRestart {
    int32_t vnet;             // HBL_VNET_NONE: nothing to restart
    bool wasRunning = false;  // when Restart asked

    // Starts the service anew if it runs; one of a network that is not bridged any more ends for good. False
    // after a failure, which is logged with `role`, what the network is in the change. A network that is none
    // gives true.
    bool Restart(FunctionLog log, const char *role);
    // Starts it whatever its state if Restart found it running; the roll-back of a change. `role` is what
    // stands before the number in the line of a failure, `comma` what stands behind it.
    void Restore(FunctionLog log, const char *role, const char *comma) const;
};
