// The exported functions of DHCP: switch, parameters, file.
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/services.h"
#include "lib/harbrel/dhcp/dhcp.h"
#include "lib/harbrel/dhcp/dhcpParameters.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/networks/featureSwitch.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/harbrel/parameters/fileUpdate.h"

namespace {

constexpr FeatureSwitch DHCP_SWITCH = {
    .function = "HBL_SetVnetUseDHCP",
    .arguments = "Arguments - v: %p,%s, uD: %u",
    .option = HBL_OPTION_DHCP,
    .set = HBLSetVnetUseDHCP,
    .same = "Current DHCP status and requested status are same",
    .cleanedUp = "Cleaned up existing DHCP configuration for vnet: %s",
    .cleanupFailed = "Failed to cleanup existing DHCP configuration for vnet: %s",
    .changing = "Current DHCP status: %u, requested status: %u, changing DHCP status",
    .assigning = "Attemping to configure subnet for vnet",
    .assignFailed = "Failed to assign subnet to vnet",
    .assigned = "New subnet configured",
    .assignedLevel = LOG_INFO2,
    .turnedOn = "Success in configuring DHCP for the vnet",
    .turnOnFailed = "Configuring DHCP failed on vnet: %s, current status unknown",
    .takingBack = nullptr,
    .turnedOff = "Success in unconfiguring DHCP  on vnet: %s",
    .turnOffFailed = "Unconfiguring DHCP failed on vnet: %s, current status unknown",
};

constexpr FileUpdateWords DHCP_FILE_UPDATE = {
    .function = "HBL_UpdateDHCPFromConfig",
    .checking = "Checking to see if DHCP service is running",
    .notStopped = "DHCP service is not in stopped state on this vnet, Cannot update config files",
    .done = "%s DHCP configuration file succeeded for vnet: %s",
    .failed = "%s DHCP configuration file failed for vnet: %s",
    .service = HBL_SVC_DHCP,
    .isSwitchedOn = HBLVnetUsesDHCP,
    .update = HBLDHCPUpdateFromConfig,
};

}  // namespace

bool HBL_SetVnetUseDHCP(const char *vnet, bool useDHCP, bool cleanup) {
    return HBLApiSwitchFeature(DHCP_SWITCH, vnet, useDHCP, cleanup);
}

bool HBL_GetVnetUseDHCP(const char *vnet) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    HBLLog(LOG_ARGS, __func__, "Arguments - v:%p,%s", static_cast<const void *>(vnet), TextOrNull(vnet));
    uint32_t number;
    if (!ApiVnetArgument(__func__, vnet, &number)) {
        return false;
    }
    const bool used = HBLVnetUsesDHCP(number);
    HBLLog(LOG_INFO2, __func__, "DHCP %s on vnet: %s", used ? "configured" : "not configured", vnet);
    return used;
}

bool HBL_SetDHCPParam(const char *vnet, uint32_t paramID, const char *param, uint32_t paramLen) {
    return HBLApiSetParameter(HBLDHCPParameters(), vnet, paramID, param, paramLen);
}

bool HBL_GetDHCPParam(const char *vnet, uint32_t paramID, bool useDefault, char *param, uint32_t *paramLen) {
    return HBLApiGetParameter(HBLDHCPParameters(), vnet, paramID, useDefault, param, paramLen);
}

bool HBL_UpdateDHCPFromConfig(const char *vnet) {
    return HBLApiUpdateFromConfig(DHCP_FILE_UPDATE, vnet);
}
