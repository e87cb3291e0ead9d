#include "lib/harbrel/api/bridgeRestart.h"

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/services.h"
#include "lib/harbrel/services/daemons.h"

bool BridgeRestart::Restart(const char *function, const char *failureLine) {
    if (vnet == HBL_VNET_NONE) {
        return true;
    }
    if (!HBLRestartService(static_cast<uint32_t>(vnet), HBL_SVC_BRIDGE, &wasRunning, nullptr, false)) {
        HBLLog(LOG_ERR, function, failureLine, vnet);
        return false;
    }
    return true;
}

void BridgeRestart::Restore(const char *function, const char *failureLine) const {
    if (wasRunning &&
        !HBLRestartService(static_cast<uint32_t>(vnet), HBL_SVC_BRIDGE, nullptr, nullptr, true)) {
        HBLLog(LOG_ERR, function, failureLine, vnet);
    }
}
