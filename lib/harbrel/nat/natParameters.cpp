#include "lib/harbrel/nat/natParameters.h"

#include <cstring>

#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/base/functionTrace.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/files/files.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/string/tokens.h"

namespace {

constexpr uint32_t GATEWAY_OFFSET = 2;

constexpr const char *INVALID_VALUE = "Invalid value: %s for NAT parameter: %s on vnet: %d";

bool Refuse(const char *function, const char *format, const ParameterRow &row, uint32_t vnet,
            const char *value) {
    HBLLog(LOG_ERR, function, format, value, row.displayName, vnet);
    return false;
}

bool CheckAddress(const char *function, const ParameterRow &row, uint32_t vnet, const char *value) {
    return HBLIPStrIsValid(value) ||
           Refuse(function, "Invalid IP address value: %s for NAT parameter: %s on vnet: %d", row, vnet,
                  value);
}

bool CheckPort(const char *function, const ParameterRow &row, uint32_t vnet, const char *value) {
    uint32_t port;
    const bool valid = StrToUint(&port, value) && port >= 1 && port <= UINT16_MAX;
    return valid || Refuse(function, "Invalid config port value: %s for NAT parameter: %s on vnet: %d ", row,
                           vnet, value);
}

bool CheckFlag(const char *function, const ParameterRow &row, uint32_t vnet, const char *value) {
    return strcmp(value, "0") == 0 || strcmp(value, "1") == 0 ||
           Refuse(function, INVALID_VALUE, row, vnet, value);
}

bool CheckSeconds(const char *function, const ParameterRow &row, uint32_t vnet, const char *value) {
    uint32_t seconds;
    const bool valid = StrToUint(&seconds, value) && static_cast<int32_t>(seconds) >= 0;
    return valid || Refuse(function, INVALID_VALUE, row, vnet, value);
}

constexpr ParameterRow ROWS[] = {
    {HBL_NAT_PARAM_GATEWAY_IP, "\"gateway ip\"", "NAT_PARAM_GATEWAY_IP", 9027, CheckAddress, nullptr},
    {HBL_NAT_PARAM_GATEWAY_NETMASK, "\"gateway netmask\"", "NAT_PARAM_INT_GATEWAY_IPSUBNETMASK", 0, nullptr,
     nullptr},
    {HBL_NAT_PARAM_UNUSED, "", "", 0, nullptr, nullptr},
    {HBL_NAT_PARAM_CONFIG_PORT, "\"configport\"", "NAT_PARAM_CONFIG_PORT", 9030, CheckPort, "33445"},
    {HBL_NAT_PARAM_ACTIVE_FTP, "\"activeFTP\"", "NAT_PARAM_ACTIVE_FTP", 9031, CheckFlag, "1"},
    {HBL_NAT_PARAM_ALLOW_ANY_OUI, "\"allowAnyOUI\"", "NAT_PARAM_ALLOW_ANY_OUI", 9032, CheckFlag, "1"},
    {HBL_NAT_PARAM_DEVICE, "\"device\"", "NAT_PARAM_DEVICE", 0, nullptr, nullptr},
    {HBL_NAT_PARAM_UDP_TIMEOUT, "\"timeout\"", "NAT_PARAM_UDP_TIMEOUT", 9033, CheckSeconds, "60"},
    {HBL_NAT_PARAM_UNKNOWN, "", "", 0, nullptr, nullptr},
};

// The subnet as stored plus two, without masking.
bool ComputeGateway(const char *function, uint32_t vnet, char *text) {
    char subnet[HBL_IP_STR_SIZE];
    uint32_t address;
    if (!HBLGetVnetSubnetAddr(vnet, subnet, sizeof subnet) || !HBLIPStr2Int(subnet, &address)) {
        HBLLog(LOG_ERR, function, "Could not get subnet address for vnet: %d", vnet);
        return false;
    }
    return HBLIPInt2Str(address + GATEWAY_OFFSET, text);
}

bool ComputeDefault(const char *function, uint32_t id, uint32_t vnet, char *text, size_t size) {
    switch (id) {
        case HBL_NAT_PARAM_GATEWAY_IP:
            return ComputeGateway(function, vnet, text);
        case HBL_NAT_PARAM_GATEWAY_NETMASK:
            if (!HBLGetVnetSubnetMask(vnet, text, HBL_IP_STR_SIZE)) {
                HBLLog(LOG_ERR, function, "Could not get subnet netmask for vnet: %d", vnet);
                return false;
            }
            return true;
        default:  // the device
            if (!HBLGetFileName(vnet, HBL_FILE_DEVICE, text, size)) {
                HBLLog(LOG_ERR, function, "Could not get zelan name for vnet: %d", vnet);
                return false;
            }
            return true;
    }
}

constexpr const char *NO_SPACE = "Insufficient space to store NAT param %d.";
constexpr const char *UNRECOGNIZED = "Unrecognized NAT parameter ID: %d";

void LogNoSpace(const char *function, const char *format, const ParameterRow &row, size_t, size_t) {
    HBLLog(LOG_ERR, function, format, row.id);
}

constexpr ParameterFamily FAMILY = {
    .rows = ROWS,
    .rowlessId = nullptr,
    .unknownId = HBL_NAT_PARAM_UNKNOWN,
    .words =
        {
            .stored = "Value of NAT parameter: %s is: %s for vnet: %d",
            .notFound = "Value of NAT parameter: %s not found in configuration for vnet: %d",
            .notFoundLevel = LOG_INFO2,
            .reverting = "Reverting to default value",
            .noSpace = NO_SPACE,
            .defaultValue = "Default value of NAT parameter: %s is: %s for vnet: %d",
            .defaultNoSpace = NO_SPACE,
            .setDone = "Successfully set value of NAT parameter: %s to value: %s for vnet: %d",
            .setFailed = "Setting value of NAT parameter: %s failed for vnet: %d",
            .unknownGet = UNRECOGNIZED,
            .unknownDefault = UNRECOGNIZED,
            .unknownSet = "Unrecognized NAT parameter ID: %u",
        },
    .api =
        {
            .getFunction = "HBL_GetNATParam",
            .getArguments = nullptr,
            .getInvalid = "Invalid argument",
            .getUnsupported = "Unsupported NAT parameter ID: %u",
            .mapped = "Mapped external NAT param ID: %u to internal param ID: %u",
            .getDone =
                "Retrieved value of NAT parameter, paramID: %2$u, value: %3$s, len: %4$u for vnet: %1$s",
            .getFailed = "Getting value of NAT Parameter: %2$u failed for vnet: %1$s",
            .setFunction = "HBL_SetNATParam",
            .setArguments = "Arguments - v: %p,%s, pID: %u, p: %p,%.*s, pL: %u",
            .setInvalid = "Invalid argument - zelan: %p",
            .setUnsupported = "Unsupported NAT parameter: %u",
            .setMapped = "Mapped external parameter ID: %u to internal parameter ID: %u",
            .noMemory = "Memory allocation failure for NAT param string",
            .setDone = "Setting value for NAT parameter: %2$u, %3$s succeeded for vnet: %1$s",
            .setFailed = "Setting value for NAT parameter: %2$u, %3$s failed for vnet: %1$s",
            .deleteDone = "Deleted value for NAT parameter: %2$u for vnet: %1$s",
            .deleteFailed = "Deleting NAT parameter: %2$u failed for vnet: %1$s",
        },
    .computeDefault = ComputeDefault,
    .logNoSpace = LogNoSpace,
    .mapExternal = HBLNATMapIntParamID,
    .get = HBLNATGetParameter,
    .getDefault = HBLNATGetParamDefault,
    .set = HBLNATSetParameter,
    .remove = HBLNATRemoveParam,
};

constexpr ParameterRemoval REMOVALS[] = {
    {HBL_NAT_PARAM_GATEWAY_IP, "Failure while removing value for NAT parameter Gateway IP Address"},
    {HBL_NAT_PARAM_GATEWAY_NETMASK, "Failure while removing value for NAT parameter Gateway netmask"},
    {HBL_NAT_PARAM_CONFIG_PORT, "Failure while removing value for NAT parameter Config port"},
    {HBL_NAT_PARAM_DEVICE, "Failure while removing value for NAT parameter device"},
    {HBL_NAT_PARAM_ACTIVE_FTP, "Failure while removing value for NAT parameter active FTP"},
    {HBL_NAT_PARAM_ALLOW_ANY_OUI, "Failure while removing value for NAT parameter allow any OUI"},
    {HBL_NAT_PARAM_UDP_TIMEOUT, "Failure while setting value for NAT parameter UDP timeout"},
};

}  // namespace

const ParameterFamily &HBLNATParameters() {
    return FAMILY;
}

uint32_t HBLNATMapIntParamID(uint32_t externalId) {
    return HBLMapExternalParameter(FAMILY, __func__, externalId);
}

bool HBLNATGetParameter(uint32_t vnet, uint32_t paramId, bool useDefault, char *buffer, size_t bufferLength) {
    return HBLGetParameter(FAMILY, __func__, vnet, paramId, useDefault, buffer, bufferLength);
}

bool HBLNATGetParamDefault(uint32_t vnet, uint32_t paramId, char *buffer, size_t bufferLength) {
    const FunctionTrace trace(__func__);
    return HBLGetParameterDefault(FAMILY, __func__, vnet, paramId, buffer, bufferLength);
}

bool HBLNATSetParameter(uint32_t vnet, uint32_t paramId, const char *value) {
    const FunctionTrace trace(__func__);
    return HBLSetParameter(FAMILY, __func__, vnet, paramId, value);
}

bool HBLNATRemoveParam(uint32_t vnet, uint32_t paramId) {
    const ParameterRow *row = HBLFindParameter(FAMILY, paramId);
    if (row == nullptr) {
        HBLLog(LOG_ERR, __func__, UNRECOGNIZED, paramId);
        return false;
    }
    if (HBLGetVnetCfg(vnet, row->key) == nullptr) {
        return true;
    }
    if (!HBLRemoveVnetCfg(vnet, row->key)) {
        HBLLog(LOG_ERR, __func__, "Failure while removing value of NAT parameter");
        return false;
    }
    return true;
}

bool HBLNATRemoveConfig(uint32_t vnet) {
    const FunctionTrace trace(__func__);
    const bool removed = HBLRemoveParameters(FAMILY, __func__, vnet, REMOVALS);
    HBLNetCfgRemoveAllNATPortFwd(nullptr, vnet, true, true, true);
    return removed;
}
