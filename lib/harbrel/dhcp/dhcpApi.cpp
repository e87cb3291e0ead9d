// The exported functions of DHCP: switch, parameters, file.
#include <cstring>

#include "lib/harbrel/base/services.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/dhcp/dhcp.h"
#include "lib/harbrel/dhcp/dhcpParameters.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/frame/inOutLengths.h"
#include "lib/harbrel/networks/featureSwitch.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/harbrel/parameters/fileUpdate.h"
#include "lib/misc/owners.h"

namespace {

constexpr FeatureSwitch DHCP_SWITCH = {
    .option = HBL_OPTION_DHCP,
    .set = HBLSetVnetUseDHCP,
    .same = "Current DHCP status and requested status are same",
    .cleanedUp = {"Cleaned up existing DHCP configuration for vnet: ", ""},
    .cleanupFailed = {"Failed to cleanup existing DHCP configuration for vnet: ", ""},
    .logChanging =
        [](FunctionLog log, bool used, bool use) {
            log(LOG_INFO2, "Current DHCP status: %u, requested status: %u, changing DHCP status", used, use);
        },
    .assigning = {"Attemping to configure subnet for vnet"},
    .assignFailed = {"Failed to assign subnet to vnet"},
    .assigned = {"New subnet configured"},
    .assignedLevel = LOG_INFO2,
    .turnedOn = {"Success in configuring DHCP for the vnet"},
    .turnOnFailed = {"Configuring DHCP failed on vnet: ", ", current status unknown"},
    .turnedOff = {"Success in unconfiguring DHCP  on vnet: ", ""},
    .turnOffFailed = {"Unconfiguring DHCP failed on vnet: ", ", current status unknown"},
};

constexpr FileUpdate DHCP_FILE_UPDATE = {
    .service = "DHCP",
    .notStopped = "DHCP service is not in stopped state on this vnet, Cannot update config files",
    .serviceId = HBL_SVC_DHCP,
    .isSwitchedOn = HBLVnetUsesDHCP,
    .update = HBLDHCPUpdateFromConfig,
};

bool MapParameter(FunctionLog log, uint32_t paramID, uint32_t *id) {
    *id = HBLDHCPMapIntParamID(paramID);
    if (*id == HBL_DHCP_PARAM_UNKNOWN) {
        log(LOG_ERR, "Unsupported DHCP Parameter");
        return false;
    }
    log(LOG_INFO2, "Mapped external param ID: %u to internal paramID: %u", paramID, *id);
    return true;
}

bool StoreParameter(FunctionLog log, const char *vnet, uint32_t number, uint32_t paramID, uint32_t id,
                    const MallocString &value) {
    if (value == nullptr) {
        log(LOG_ERR, "Memory allocation failure for DHCP parameter");
        return false;
    }
    const bool stored = HBLDHCPSetParameter(number, id, value.get());
    log(stored ? LOG_OK : LOG_ERR, "Setting value for DHCP Parameter %s, vnet: %s, paramID: %u, param: %s",
        stored ? "succeeded" : "failed", vnet, paramID, value.get());
    return stored;
}

bool DeleteParameter(FunctionLog log, const char *vnet, uint32_t number, uint32_t paramID, uint32_t id) {
    if (!HBLDHCPRemoveParameter(number, id)) {
        log(LOG_ERR, "Deleting DHCP parameter: %u failed for vnet: %s", paramID, vnet);
        return false;
    }
    log(LOG_OK, "Deleted value for DHCP parameter: %u for vnet: %s", paramID, vnet);
    return true;
}

}  // namespace

bool HBL_SetVnetUseDHCP(const char *vnet, bool useDHCP, bool cleanup) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    frame.log(LOG_ARGS, "Arguments - v: %p,%s, uD: %u", Address(vnet), TextOrNull(vnet), useDHCP);
    return HBLApiSwitchFeature(frame.log, DHCP_SWITCH, vnet, useDHCP, cleanup);
}

bool HBL_GetVnetUseDHCP(const char *vnet) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    frame.log(LOG_ARGS, "Arguments - v:%p,%s", Address(vnet), TextOrNull(vnet));
    uint32_t number;
    if (!ApiVnetArgument(frame.log, vnet, &number)) {
        return false;
    }
    const bool used = HBLVnetUsesDHCP(number);
    frame.log(LOG_INFO2, "DHCP %s on vnet: %s", used ? "configured" : "not configured", vnet);
    return used;
}

bool HBL_SetDHCPParam(const char *vnet, uint32_t paramID, const char *param, uint32_t paramLen) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    frame.log(LOG_ARGS, "Arguments - v: %p,%s, pID: %u, p: %p,%.*s pL: %u", Address(vnet), TextOrNull(vnet),
              paramID, Address(param), ShownLength(param, paramLen), TextOrNull(param), paramLen);
    if (vnet == nullptr) {
        frame.log(LOG_ERR, "Invalid argument - vnet: %p, param: %p", Address(vnet), Address(param));
        return false;
    }
    uint32_t number;
    uint32_t id;
    if (!ApiVnetNumber(frame.log, vnet, &number) || !MapParameter(frame.log, paramID, &id)) {
        return false;
    }
    const ConfigLock lock(frame.log);
    if (!lock.Held()) {
        return false;
    }
    if (param == nullptr) {
        return DeleteParameter(frame.log, vnet, number, paramID, id);
    }
    return StoreParameter(frame.log, vnet, number, paramID, id, MallocString(strndup(param, paramLen)));
}

bool HBL_GetDHCPParam(const char *vnet, uint32_t paramID, bool useDefault, char *param, uint32_t *paramLen) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    const uint32_t size = ValueOrZero(paramLen);
    frame.log(LOG_ARGS, "Arguments - v: %p,%s, pID: %u, uD: %u, p: %p, pL: %p,%u", Address(vnet),
              TextOrNull(vnet), paramID, useDefault, Address(param), Address(paramLen), size);
    if (vnet == nullptr || param == nullptr || size == 0) {
        frame.log(LOG_ERR, "Invalid argument - v: %p p: %p, pL: %p,%u", Address(vnet), Address(param),
                  Address(paramLen), size);
        return false;
    }
    uint32_t number;
    uint32_t id;
    if (!ApiVnetNumber(frame.log, vnet, &number) || !MapParameter(frame.log, paramID, &id)) {
        return false;
    }
    if (!HBLDHCPGetParameter(number, id, useDefault, param, size)) {
        frame.log(LOG_ERR, "Get DHCP Parameter failed on vnet: %s, paramID: %u", vnet, paramID);
        return false;
    }
    *paramLen = LengthWithTerminator(param);
    frame.log(LOG_INFO2,
              "Success in getting value of DHCP parameter,vnet: %s, paramID: %u, value: %s, len: %u", vnet,
              paramID, param, *paramLen);
    return true;
}

bool HBL_UpdateDHCPFromConfig(const char *vnet) {
    return HBLApiUpdateFromConfig(__func__, DHCP_FILE_UPDATE, vnet);
}
