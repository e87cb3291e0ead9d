#include "lib/harbrel/nat/natParameters.h"

#include <cstring>

#include "lib/fatal/panic.h"
#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/base/functionTrace.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/files/files.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/string/tokens.h"

namespace {

constexpr uint32_t GATEWAY_OFFSET = 2;

// `what` is wrong with the value. Always false.
bool Refuse(FunctionLog log, const char *what, const ParameterRow &row, uint32_t vnet, const char *value) {
    log(LOG_ERR, "%s: %s for NAT parameter: %s on vnet: %d", what, value, row.displayName, vnet);
    return false;
}

bool CheckAddress(FunctionLog log, const ParameterRow &row, uint32_t vnet, const char *value) {
    return HBLIPStrIsValid(value) || Refuse(log, "Invalid IP address value", row, vnet, value);
}

bool CheckPort(FunctionLog log, const ParameterRow &row, uint32_t vnet, const char *value) {
    uint32_t port;
    if (StrToUint(&port, value) && port >= 1 && port <= UINT16_MAX) {
        return true;
    }
    // The one line of these with a blank at its end.
    log(LOG_ERR, "Invalid config port value: %s for NAT parameter: %s on vnet: %d ", value, row.displayName,
        vnet);
    return false;
}

bool CheckFlag(FunctionLog log, const ParameterRow &row, uint32_t vnet, const char *value) {
    return strcmp(value, "0") == 0 || strcmp(value, "1") == 0 ||
           Refuse(log, "Invalid value", row, vnet, value);
}

bool CheckSeconds(FunctionLog log, const ParameterRow &row, uint32_t vnet, const char *value) {
    uint32_t seconds;
    return (StrToUint(&seconds, value) && static_cast<int32_t>(seconds) >= 0) ||
           Refuse(log, "Invalid value", row, vnet, value);
}

constexpr ParameterRow ROWS[] = {
    {HBL_NAT_PARAM_GATEWAY_IP, "\"gateway ip\"", "NAT_PARAM_GATEWAY_IP", HBL_PARAM_NAT_GATEWAY, CheckAddress,
     nullptr},
    {HBL_NAT_PARAM_GATEWAY_NETMASK, "\"gateway netmask\"", "NAT_PARAM_INT_GATEWAY_IPSUBNETMASK", 0, nullptr,
     nullptr},
    {HBL_NAT_PARAM_UNUSED, "", "", 0, nullptr, nullptr},
    {HBL_NAT_PARAM_CONFIG_PORT, "\"configport\"", "NAT_PARAM_CONFIG_PORT", HBL_PARAM_NAT_CONFIG_PORT,
     CheckPort, "33445"},
    {HBL_NAT_PARAM_ACTIVE_FTP, "\"activeFTP\"", "NAT_PARAM_ACTIVE_FTP", HBL_PARAM_NAT_ACTIVE_FTP, CheckFlag,
     "1"},
    {HBL_NAT_PARAM_ALLOW_ANY_OUI, "\"allowAnyOUI\"", "NAT_PARAM_ALLOW_ANY_OUI", HBL_PARAM_NAT_ANY_OUI,
     CheckFlag, "1"},
    {HBL_NAT_PARAM_DEVICE, "\"device\"", "NAT_PARAM_DEVICE", 0, nullptr, nullptr},
    {HBL_NAT_PARAM_UDP_TIMEOUT, "\"timeout\"", "NAT_PARAM_UDP_TIMEOUT", HBL_PARAM_NAT_UDP_TIMEOUT,
     CheckSeconds, "60"},
    {HBL_NAT_PARAM_UNKNOWN, "", "", 0, nullptr, nullptr},
};

// The subnet as stored plus two, without masking.
bool ComputeGateway(FunctionLog log, uint32_t vnet, char *text) {
    char subnet[HBL_IP_STR_SIZE];
    uint32_t address;
    if (!HBLGetVnetSubnetAddr(vnet, subnet, sizeof subnet) || !HBLIPStr2Int(subnet, &address)) {
        log(LOG_ERR, "Could not get subnet address for vnet: %d", vnet);
        return false;
    }
    return HBLIPInt2Str(address + GATEWAY_OFFSET, text);
}

bool ComputeDefault(FunctionLog log, uint32_t id, uint32_t vnet, char *text, size_t size) {
    switch (id) {
        case HBL_NAT_PARAM_GATEWAY_IP:
            return ComputeGateway(log, vnet, text);
        case HBL_NAT_PARAM_GATEWAY_NETMASK:
            if (!HBLGetVnetSubnetMask(vnet, text, HBL_IP_STR_SIZE)) {
                log(LOG_ERR, "Could not get subnet netmask for vnet: %d", vnet);
                return false;
            }
            return true;
        case HBL_NAT_PARAM_DEVICE:
            if (!HBLGetFileName(vnet, HBL_FILE_DEVICE, text, size)) {
                log(LOG_ERR, "Could not get zelan name for vnet: %d", vnet);
                return false;
            }
            return true;
        default:
            PanicNotReached();  // all other rows have a constant
    }
}

void LogUnrecognized(FunctionLog log, uint32_t id) {
    log(LOG_ERR, "Unrecognized NAT parameter ID: %d", static_cast<int>(id));
}

void LogUnsettable(FunctionLog log, uint32_t id) {
    log(LOG_ERR, "Unrecognized NAT parameter ID: %u", id);
}

void LogNoSpace(FunctionLog log, const ParameterRow &row, size_t, size_t) {
    log(LOG_ERR, "Insufficient space to store NAT param %d.", static_cast<int>(row.id));
}

constexpr ParameterFamily FAMILY = {
    .rows = ROWS,
    .rowForUnknown = nullptr,
    .unknownId = HBL_NAT_PARAM_UNKNOWN,
    .service = "NAT",
    .lookedFor = "Value of",
    .notFoundLevel = LOG_INFO2,
    .reverting = "Reverting to default value",
    .logUnreadable = LogUnrecognized,
    .logUnsettable = LogUnsettable,
    .logNoSpace = LogNoSpace,
    .logNoSpaceForDefault = LogNoSpace,
    .computeDefault = ComputeDefault,
    .getDefault = HBLNATGetParamDefault,
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

std::span<const ParameterRow> HBLNATParameterRows() {
    return ROWS;
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
        LogUnrecognized(__func__, paramId);
        return false;
    }
    if (!HBLGetVnetCfg(vnet, row->key).has_value()) {
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
    const bool removed = HBLRemoveParameters(__func__, HBLNATRemoveParam, vnet, REMOVALS);
    HBLNetCfgRemoveAllNATPortFwd(nullptr, vnet, true, true, true);
    return removed;
}
