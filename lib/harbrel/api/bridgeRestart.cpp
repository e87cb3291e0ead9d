#include "lib/harbrel/api/bridgeRestart.h"

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/services.h"
#include "lib/harbrel/services/daemons.h"

bool BridgeRestart::Restart(FunctionLog log, const char *role) {
    if (vnet == HBL_VNET_NONE) {
        return true;
    }
    if (!HBLRestartService(static_cast<uint32_t>(vnet), HBL_SVC_BRIDGE, &wasRunning, nullptr, false)) {
        log(LOG_ERR, "Failed to restart bridge service on %s: %d", role, vnet);
        return false;
    }
    return true;
}

void BridgeRestart::Restore(FunctionLog log, const char *role, const char *comma) const {
    if (wasRunning &&
        !HBLRestartService(static_cast<uint32_t>(vnet), HBL_SVC_BRIDGE, nullptr, nullptr, true)) {
        log(LOG_ERR, "Failed to restart bridge service on %s: %d%s during cleanup", role, vnet, comma);
    }
}
