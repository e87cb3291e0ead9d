// Restarting the bridge service of a network within a change that may be rolled back.
#pragma once

#include <cstdint>

// One network whose bridge service a change restarts.
struct BridgeRestart {
    int32_t vnet;             // HBL_VNET_NONE: nothing to restart
    bool wasRunning = false;  // when Restart stopped it

    // Brings the service up again if it ran. False when that failed, with the failure line, which takes the
    // number, under `function`. A network that is none gives true.
    bool Restart(const char *function, const char *failureLine);
    // Starts it whatever its state if Restart found it running; the roll-back of a change.
    void Restore(const char *function, const char *failureLine) const;
};
