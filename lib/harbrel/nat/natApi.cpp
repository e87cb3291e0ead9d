// The exported functions of NAT: switch, parameters, file.
#include <cstring>

#include "lib/harbrel/base/services.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/frame/inOutLengths.h"
#include "lib/harbrel/nat/nat.h"
#include "lib/harbrel/nat/natParameters.h"
#include "lib/harbrel/networks/featureSwitch.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/harbrel/parameters/fileUpdate.h"
#include "lib/misc/owners.h"

namespace {

constexpr FeatureSwitch NAT_SWITCH = {
    .option = HBL_OPTION_NAT,
    .set = HBLSetVnetUseNAT,
    .same = "Current NAT status and requested status are same",
    .cleanedUp = {"Cleaned up existing NAT configuration for vnet: ", ""},
    .cleanupFailed = {"Failed to cleanup existing NAT configuration for vnet: ", ""},
    .logChanging =
        [](FunctionLog log, bool used, bool use) {
            log(LOG_INFO2, "Current NAT status: %u, requested status: %u, changing NAT status", used, use);
        },
    .assigning = {"Attempting to assign an unused subnet for vnet: ", ""},
    .assignFailed = {"Failed to assign subnet to vnet: ", ""},
    .assigned = {"New subnet configured for vnet: ", ""},
    .assignedLevel = LOG_INFO2,
    .turnedOn = {"Success in configuring NAT for vnet: ", ""},
    .turnOnFailed = {"Configuring NAT failed on vnet: ", ""},
    .takingBack = {"Removing assigned subnet for vnet: ", " because of error"},
    .turnedOff = {"Success in unconfiguring NAT on vnet: ", ""},
    .turnOffFailed = {"Unconfiguring NAT failed on vnet: ", ""},
};

constexpr FileUpdate NAT_FILE_UPDATE = {
    .service = "NAT",
    .notStopped = "NAT service is not in stopped state on this vnet,Cannot update config information",
    .serviceId = HBL_SVC_NAT,
    .isSwitchedOn = HBLVnetUsesNAT,
    .update = HBLNATUpdateFromConfig,
};

bool StoreParameter(FunctionLog log, const char *vnet, uint32_t number, uint32_t paramID, uint32_t id,
                    const MallocString &value) {
    if (value == nullptr) {
        log(LOG_ERR, "Memory allocation failure for NAT param string");
        return false;
    }
    const bool stored = HBLNATSetParameter(number, id, value.get());
    log(stored ? LOG_OK : LOG_ERR, "Setting value for NAT parameter: %u, %s %s for vnet: %s", paramID,
        value.get(), stored ? "succeeded" : "failed", vnet);
    return stored;
}

bool DeleteParameter(FunctionLog log, const char *vnet, uint32_t number, uint32_t paramID, uint32_t id) {
    if (!HBLNATRemoveParam(number, id)) {
        log(LOG_ERR, "Deleting NAT parameter: %u failed for vnet: %s", paramID, vnet);
        return false;
    }
    log(LOG_OK, "Deleted value for NAT parameter: %u for vnet: %s", paramID, vnet);
    return true;
}

}  // namespace

bool HBL_SetVnetUseNAT(const char *vnet, bool useNAT, bool cleanup) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    frame.log(LOG_ARGS, "Arguments - v: %p,%s, uN: %u", Address(vnet), TextOrNull(vnet), useNAT);
    return HBLApiSwitchFeature(frame.log, NAT_SWITCH, vnet, useNAT, cleanup);
}

bool HBL_GetVnetUseNAT(const char *vnet) {
    const ApiFrame frame(__func__);
    uint32_t number = 0;
    if (!frame.Passed() || !ApiOnlyVnetArgument(frame.log, vnet, &number, "zelan")) {
        return false;
    }
    const bool used = HBLVnetUsesNAT(number);
    frame.log(LOG_INFO2, "NAT %s on vnet %s", used ? "configured" : "not configured", vnet);
    return used;
}

bool HBL_SetNATParam(const char *vnet, uint32_t paramID, const char *param, uint32_t paramLen) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    frame.log(LOG_ARGS, "Arguments - v: %p,%s, pID: %u, p: %p,%.*s, pL: %u", Address(vnet), TextOrNull(vnet),
              paramID, Address(param), ShownLength(param, paramLen), TextOrNull(param), paramLen);
    uint32_t number;
    if (!ApiVnetArgument(frame.log, vnet, &number, "zelan")) {
        return false;
    }
    const uint32_t id = HBLNATMapIntParamID(paramID);
    if (id == HBL_NAT_PARAM_UNKNOWN) {
        frame.log(LOG_ERR, "Unsupported NAT parameter: %u", paramID);
        return false;
    }
    frame.log(LOG_INFO2, "Mapped external parameter ID: %u to internal parameter ID: %u", paramID, id);
    const ConfigLock lock(frame.log);
    if (!lock.Held()) {
        return false;
    }
    if (param == nullptr) {
        return DeleteParameter(frame.log, vnet, number, paramID, id);
    }
    return StoreParameter(frame.log, vnet, number, paramID, id, MallocString(strndup(param, paramLen)));
}

// Without an argument line.
bool HBL_GetNATParam(const char *vnet, uint32_t paramID, bool useDefault, char *param, uint32_t *paramLen) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    const uint32_t size = ValueOrZero(paramLen);
    if (vnet == nullptr || param == nullptr || size == 0) {
        frame.log(LOG_ERR, "Invalid argument");
        return false;
    }
    uint32_t number;
    if (!ApiVnetNumber(frame.log, vnet, &number)) {
        return false;
    }
    const uint32_t id = HBLNATMapIntParamID(paramID);
    if (id == HBL_NAT_PARAM_UNKNOWN) {
        frame.log(LOG_ERR, "Unsupported NAT parameter ID: %u", paramID);
        return false;
    }
    frame.log(LOG_INFO2, "Mapped external NAT param ID: %u to internal param ID: %u", paramID, id);
    if (!HBLNATGetParameter(number, id, useDefault, param, size)) {
        frame.log(LOG_ERR, "Getting value of NAT Parameter: %u failed for vnet: %s", paramID, vnet);
        return false;
    }
    *paramLen = LengthWithTerminator(param);
    frame.log(LOG_INFO2, "Retrieved value of NAT parameter, paramID: %u, value: %s, len: %u for vnet: %s",
              paramID, param, *paramLen, vnet);
    return true;
}

bool HBL_UpdateNATFromConfig(const char *vnet) {
    return HBLApiUpdateFromConfig(__func__, NAT_FILE_UPDATE, vnet);
}
