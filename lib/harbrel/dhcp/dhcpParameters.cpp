#include "lib/harbrel/dhcp/dhcpParameters.h"

#include <cstring>

#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/base/functionTrace.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/dhcp/dhcpConfigFile.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/string/tokens.h"

namespace {

constexpr uint32_t EXTERNAL_ID_WITHOUT_ROW = 13356;
constexpr uint32_t SMALLEST_SUBNET_MASK = 0xFFFFFFF8;  // 255.255.255.248: 8 addresses

bool FitsLength(const char *function, const ParameterRow &row, const char *value, size_t size) {
    const size_t length = strlen(value);
    if (length >= size) {
        HBLLog(LOG_ERR, function, "Invalid value length: %u, value: %s for parameter: %s",
               static_cast<unsigned>(length), value, row.displayName);
        return false;
    }
    return true;
}

bool CheckAddress(const char *function, const ParameterRow &row, uint32_t, const char *value) {
    if (!FitsLength(function, row, value, HBL_IP_STR_SIZE)) {
        return false;
    }
    if (!HBLIPStrIsValid(value)) {
        HBLLog(LOG_ERR, function, "Invalid IP address: %s for parameter: %s", value, row.displayName);
        return false;
    }
    return true;
}

bool CheckSeconds(const char *function, const ParameterRow &, uint32_t, const char *value) {
    uint32_t seconds;
    if (!StrToUint(&seconds, value) || static_cast<int32_t>(seconds) < 0) {
        HBLLog(LOG_ERR, function, "Invalid argument for time");
        return false;
    }
    return true;
}

bool CheckDomainName(const char *function, const ParameterRow &row, uint32_t, const char *value) {
    return FitsLength(function, row, value, HBL_DHCP_DOMAIN_NAME_SIZE);
}

constexpr ParameterRow ROWS[] = {
    {9539, "", "", 0, nullptr, nullptr},
    {9540, "", "", 0, nullptr, nullptr},
    {9541, "", "", 0, nullptr, nullptr},
    {HBL_DHCP_PARAM_LEASE_BEGIN_IP, "\"Lease Begin IP\"", "DHCP_PARAM_LEASE_START_IP", 13350, CheckAddress,
     nullptr},
    {HBL_DHCP_PARAM_LEASE_END_IP, "\"Lease End IP\"", "DHCP_PARAM_LEASE_END_IP", 13351, CheckAddress,
     nullptr},
    {9544, "", "", 0, nullptr, nullptr},
    {9545, "", "", 0, nullptr, nullptr},
    {HBL_DHCP_PARAM_DEFAULT_LEASE_DURATION_SEC, "\"Default Lease Duration\"", "DHCP_PARAM_DEFAULT_LEASE_TIME",
     0, CheckSeconds, "1800"},
    {HBL_DHCP_PARAM_MAX_LEASE_DURATION_SEC, "\"Max Lease Duration\"", "DHCP_PARAM_MAX_LEASE_TIME", 0,
     CheckSeconds, "7200"},
    {HBL_DHCP_PARAM_BROADCAST_ADDR, "\"Broadcast Address\"", "DHCP_PARAM_BROADCAST_ADDR", 0, CheckAddress,
     nullptr},
    {HBL_DHCP_PARAM_DNS_ADDR, "\"DNS Address\"", "DHCP_PARAM_DNS_ADDR", 0, CheckAddress, nullptr},
    {HBL_DHCP_PARAM_ROUTERS, "\"Routers\"", "DHCP_PARAM_ROUTERS", 0, CheckAddress, nullptr},
    {HBL_DHCP_PARAM_DOMAIN_NAME, "\"Domain Name\"", "DHCP_PARAM_DOMAIN_NAME", 0, CheckDomainName,
     "localdomain"},
    {HBL_DHCP_PARAM_SUB_DEFAULT_LEASE_DURATION_SEC, "\"Subnet Default Lease Duration\"",
     "DHCP_PARAM_SUB_DEFAULT_LEASE_TIME", 13354, CheckSeconds, "1800"},
    {HBL_DHCP_PARAM_SUB_MAX_LEASE_DURATION_SEC, "\"Subnet Max Lease Duration\"",
     "DHCP_PARAM_SUB_MAX_LEASE_TIME", 13355, CheckSeconds, "7200"},
    {HBL_DHCP_PARAM_UNKNOWN, "", "", 0, nullptr, nullptr},
};

constexpr const char *INVALID_ID = "Invalid DHCP Param Name %d";

// Stands for an id that has no row at all.
constexpr ParameterRow NO_ROW = {HBL_DHCP_PARAM_NO_ROW, "Invalid DHCP Parameter", "", 0, nullptr, nullptr};

// The subnet of a network as integers, refused when it has less than 8 addresses.
bool ReadSubnet(const char *function, uint32_t vnet, uint32_t *network, uint32_t *mask) {
    char subnetText[HBL_IP_STR_SIZE];
    char maskText[HBL_IP_STR_SIZE];
    if (!HBLGetVnetSubnetAddr(vnet, subnetText, sizeof subnetText)) {
        HBLLog(LOG_ERR, function, "Cannot obtain subnet address");
        return false;
    }
    if (!HBLGetVnetSubnetMask(vnet, maskText, sizeof maskText)) {
        HBLLog(LOG_ERR, function, "Cannot obtain subnet netmask");
        return false;
    }
    uint32_t subnet;
    if (!HBLIPStr2Int(subnetText, &subnet) || !HBLIPStr2Int(maskText, mask)) {
        return false;
    }
    if (*mask > SMALLEST_SUBNET_MASK) {
        HBLLog(LOG_ERR, function, "The subnet: %s, mask: %s is too small, we need atleast 8 hosts",
               subnetText, maskText);
        return false;
    }
    *network = subnet & *mask;
    return true;
}

bool ComputeDefault(const char *function, uint32_t id, uint32_t vnet, char *text, size_t) {
    uint32_t network;
    uint32_t mask;
    if (!ReadSubnet(function, vnet, &network, &mask)) {
        return false;
    }
    const uint32_t broadcast = network | ~mask;
    const uint32_t upperHalf = network | ((~mask + 1) >> 1);
    switch (id) {
        case HBL_DHCP_PARAM_LEASE_BEGIN_IP:
            return HBLIPInt2Str(upperHalf + 1, text);
        case HBL_DHCP_PARAM_LEASE_END_IP:
            return HBLIPInt2Str(broadcast - 1, text);
        case HBL_DHCP_PARAM_BROADCAST_ADDR:
            return HBLIPInt2Str(broadcast, text);
        case HBL_DHCP_PARAM_DNS_ADDR:
            return HBLIPInt2Str(network + (HBLVnetUsesNAT(vnet) ? 2 : 1), text);
        default:  // the routers
            return HBLIPInt2Str(network + 2, text);
    }
}

void LogNoSpace(const char *function, const char *format, const ParameterRow &row, size_t size,
                size_t needed) {
    HBLLog(LOG_ERR, function, format, size, row.displayName, needed);
}

constexpr ParameterFamily FAMILY = {
    .rows = ROWS,
    .rowlessId = &NO_ROW,
    .unknownId = HBL_DHCP_PARAM_UNKNOWN,
    .words =
        {
            .stored = "Value of DHCP parameter: %s is: %s for vnet: %d",
            .notFound = "Value for DHCP parameter: %s not found in configuration for vnet: %d",
            .notFoundLevel = LOG_ERR,
            .reverting = "Reverting to getting default value",
            .noSpace = "Insufficient space %zu to store value of DHCP parameter: %s, required: %zu",
            .defaultValue = "Default value of DHCP parameter: %s is: %s for vnet: %d",
            .defaultNoSpace = "Insufficient buffer size: %zu for DHCP parameter: %s required: %zu",
            .setDone = "Successfully set value of DHCP parameter: %s to value: %s for vnet: %d",
            .setFailed = "Setting value of DHCP parameter: %s failed for vnet: %d",
            .unknownGet = nullptr,
            .unknownDefault = INVALID_ID,
            .unknownSet = INVALID_ID,
        },
    .api =
        {
            .getFunction = "HBL_GetDHCPParam",
            .getArguments = "Arguments - v: %p,%s, pID: %u, uD: %u, p: %p, pL: %p,%u",
            .getInvalid = "Invalid argument - v: %p p: %p, pL: %p,%u",
            .getUnsupported = "Unsupported DHCP Parameter",
            .mapped = "Mapped external param ID: %u to internal paramID: %u",
            .getDone = "Success in getting value of DHCP parameter,vnet: %s, paramID: %u, value: %s, len: %u",
            .getFailed = "Get DHCP Parameter failed on vnet: %s, paramID: %u",
            .setFunction = "HBL_SetDHCPParam",
            .setArguments = "Arguments - v: %p,%s, pID: %u, p: %p,%.*s pL: %u",
            .setInvalid = "Invalid argument - vnet: %p, param: %p",
            .setUnsupported = "Unsupported DHCP Parameter",
            .setMapped = "Mapped external param ID: %u to internal paramID: %u",
            .noMemory = "Memory allocation failure for DHCP parameter",
            .setDone = "Setting value for DHCP Parameter succeeded, vnet: %s, paramID: %u, param: %s",
            .setFailed = "Setting value for DHCP Parameter failed, vnet: %s, paramID: %u, param: %s",
            .deleteDone = "Deleted value for DHCP parameter: %2$u for vnet: %1$s",
            .deleteFailed = "Deleting DHCP parameter: %2$u failed for vnet: %1$s",
        },
    .computeDefault = ComputeDefault,
    .logNoSpace = LogNoSpace,
    .mapExternal = HBLDHCPMapIntParamID,
    .get = HBLDHCPGetParameter,
    .getDefault = HBLDHCPGetParameterDefault,
    .set = HBLDHCPSetParameter,
    .remove = HBLDHCPRemoveParameter,
};

constexpr ParameterRemoval REMOVALS[] = {
    {HBL_DHCP_PARAM_LEASE_BEGIN_IP, "Failure in deleting DHCP parameter Lease Start IP"},
    {HBL_DHCP_PARAM_LEASE_END_IP, "Failure in deleting DHCP parameter lease end IP"},
    {HBL_DHCP_PARAM_BROADCAST_ADDR, "Failure in deleting DHCP parameter broadcast address"},
    {HBL_DHCP_PARAM_DNS_ADDR, "Failure in deleting DHCP parameter DNS address"},
    {HBL_DHCP_PARAM_ROUTERS, "Failure in deleting DHCP parameter routers"},
    {HBL_DHCP_PARAM_DOMAIN_NAME, "Failure in deleting DHCP parameter domain name"},
    {HBL_DHCP_PARAM_DEFAULT_LEASE_DURATION_SEC, "Failure in deleting DHCP parameter default lease time"},
    {HBL_DHCP_PARAM_MAX_LEASE_DURATION_SEC, "Failure in deleting DHCP parameter max lease time"},
    {HBL_DHCP_PARAM_SUB_DEFAULT_LEASE_DURATION_SEC,
     "Failure in deleting DHCP subnet parameter default lease time"},
    {HBL_DHCP_PARAM_SUB_MAX_LEASE_DURATION_SEC, "Failure in deleting DHCP subnet parameter max lease time"},
};

}  // namespace

const ParameterFamily &HBLDHCPParameters() {
    return FAMILY;
}

uint32_t HBLDHCPMapIntParamID(uint32_t externalId) {
    const uint32_t id = externalId == EXTERNAL_ID_WITHOUT_ROW
                            ? static_cast<uint32_t>(HBL_DHCP_PARAM_NO_ROW)
                            : HBLMapExternalParameter(FAMILY, __func__, externalId);
    HBLLog(LOG_INFO2, __func__, "Mapped external ParamID: %u to internal ParamID: %u", externalId, id);
    return id;
}

bool HBLDHCPGetParameter(uint32_t vnet, uint32_t paramId, bool useDefault, char *buffer,
                         size_t bufferLength) {
    const FunctionTrace trace(__func__);
    return HBLGetParameter(FAMILY, __func__, vnet, paramId, useDefault, buffer, bufferLength);
}

bool HBLDHCPGetParameterDefault(uint32_t vnet, uint32_t paramId, char *buffer, size_t bufferLength) {
    const FunctionTrace trace(__func__);
    return HBLGetParameterDefault(FAMILY, __func__, vnet, paramId, buffer, bufferLength);
}

bool HBLDHCPSetParameter(uint32_t vnet, uint32_t paramId, const char *value) {
    const FunctionTrace trace(__func__);
    return HBLSetParameter(FAMILY, __func__, vnet, paramId, value);
}

bool HBLDHCPRemoveParameter(uint32_t vnet, uint32_t paramId) {
    const FunctionTrace trace(__func__);
    const ParameterRow *row = HBLFindParameter(FAMILY, paramId);
    if (row == nullptr) {
        HBLLog(LOG_ERR, __func__, "Invalid DHCP parameter: %u", paramId);
        return false;
    }
    if (!HBLRemoveVnetCfg(vnet, row->key)) {
        HBLLog(LOG_ERR, __func__, "Removing value of DHCP parameter: %s failed for vnet: %d",
               row->displayName, vnet);
        return false;
    }
    HBLLog(LOG_INFO2, __func__, "Removed value of DHCP parameter: %s for vnet: %d", row->displayName, vnet);
    return true;
}

bool HBLDHCPRemoveDHCPConfig(uint32_t vnet) {
    const FunctionTrace trace(__func__);
    // The file carries the routers only while NAT is on; with NAT off a stored value stays.
    const uint32_t keptId = HBLVnetUsesNAT(vnet) ? 0 : uint32_t{HBL_DHCP_PARAM_ROUTERS};
    const bool removed = HBLRemoveParameters(FAMILY, __func__, vnet, REMOVALS, keptId);
    HBLRemoveVnetCfg(vnet, VNET_FIELD_DHCP_CFG_HASH);
    HBLNetCfgRemoveAllDHCPMACToIPMapping(nullptr, vnet, true);
    return removed;
}
