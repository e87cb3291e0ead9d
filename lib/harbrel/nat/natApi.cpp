// The exported functions of NAT: switch, parameters, file.
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/services.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/nat/nat.h"
#include "lib/harbrel/nat/natParameters.h"
#include "lib/harbrel/networks/featureSwitch.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/harbrel/parameters/fileUpdate.h"

namespace {

constexpr FeatureSwitch NAT_SWITCH = {
    .function = "HBL_SetVnetUseNAT",
    .arguments = "Arguments - v: %p,%s, uN: %u",
    .option = HBL_OPTION_NAT,
    .set = HBLSetVnetUseNAT,
    .same = "Current NAT status and requested status are same",
    .cleanedUp = "Cleaned up existing NAT configuration for vnet: %s",
    .cleanupFailed = "Failed to cleanup existing NAT configuration for vnet: %s",
    .changing = "Current NAT status: %u, requested status: %u, changing NAT status",
    .assigning = "Attempting to assign an unused subnet for vnet: %s",
    .assignFailed = "Failed to assign subnet to vnet: %s",
    .assigned = "New subnet configured for vnet: %s",
    .assignedLevel = LOG_INFO2,
    .turnedOn = "Success in configuring NAT for vnet: %s",
    .turnOnFailed = "Configuring NAT failed on vnet: %s",
    .takingBack = "Removing assigned subnet for vnet: %s because of error",
    .turnedOff = "Success in unconfiguring NAT on vnet: %s",
    .turnOffFailed = "Unconfiguring NAT failed on vnet: %s",
};

constexpr FileUpdateWords NAT_FILE_UPDATE = {
    .function = "HBL_UpdateNATFromConfig",
    .checking = "Checking to see if NAT service is running",
    .notStopped = "NAT service is not in stopped state on this vnet,Cannot update config information",
    .done = "%s NAT configuration file succeeded for vnet: %s",
    .failed = "%s NAT configuration file failed for vnet: %s",
    .service = HBL_SVC_NAT,
    .isSwitchedOn = HBLVnetUsesNAT,
    .update = HBLNATUpdateFromConfig,
};

}  // namespace

bool HBL_SetVnetUseNAT(const char *vnet, bool useNAT, bool cleanup) {
    return HBLApiSwitchFeature(NAT_SWITCH, vnet, useNAT, cleanup);
}

bool HBL_GetVnetUseNAT(const char *vnet) {
    const ApiFrame frame(__func__);
    uint32_t number = 0;
    if (!frame.Passed() || !ApiOnlyVnetArgument(__func__, vnet, &number, "zelan")) {
        return false;
    }
    const bool used = HBLVnetUsesNAT(number);
    HBLLog(LOG_INFO2, __func__, "NAT %s on vnet %s", used ? "configured" : "not configured", vnet);
    return used;
}

bool HBL_SetNATParam(const char *vnet, uint32_t paramID, const char *param, uint32_t paramLen) {
    return HBLApiSetParameter(HBLNATParameters(), vnet, paramID, param, paramLen);
}

bool HBL_GetNATParam(const char *vnet, uint32_t paramID, bool useDefault, char *param, uint32_t *paramLen) {
    return HBLApiGetParameter(HBLNATParameters(), vnet, paramID, useDefault, param, paramLen);
}

bool HBL_UpdateNATFromConfig(const char *vnet) {
    return HBLApiUpdateFromConfig(NAT_FILE_UPDATE, vnet);
}
