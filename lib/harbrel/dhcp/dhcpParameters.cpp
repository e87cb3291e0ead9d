#include "lib/harbrel/dhcp/dhcpParameters.h"

#include <cstring>

#include "lib/fatal/panic.h"
#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/base/functionTrace.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/string/tokens.h"

namespace {

constexpr uint32_t EXTERNAL_ID_WITHOUT_ROW = 13356;
constexpr uint32_t SMALLEST_SUBNET_MASK = 0xFFFFFFF8;  // 255.255.255.248: 8 addresses

bool FitsLength(FunctionLog log, const ParameterRow &row, const char *value, size_t size) {
    const size_t length = strlen(value);
    if (length >= size) {
        log(LOG_ERR, "Invalid value length: %u, value: %s for parameter: %s", static_cast<unsigned>(length),
            value, row.displayName);
        return false;
    }
    return true;
}

bool CheckAddress(FunctionLog log, const ParameterRow &row, uint32_t, const char *value) {
    if (!FitsLength(log, row, value, HBL_IP_STR_SIZE)) {
        return false;
    }
    if (!HBLIPStrIsValid(value)) {
        log(LOG_ERR, "Invalid IP address: %s for parameter: %s", value, row.displayName);
        return false;
    }
    return true;
}

bool CheckSeconds(FunctionLog log, const ParameterRow &, uint32_t, const char *value) {
    uint32_t seconds;
    if (!StrToUint(&seconds, value) || static_cast<int32_t>(seconds) < 0) {
        log(LOG_ERR, "Invalid argument for time");
        return false;
    }
    return true;
}

bool CheckDomainName(FunctionLog log, const ParameterRow &row, uint32_t, const char *value) {
    return FitsLength(log, row, value, HBL_DHCP_DOMAIN_NAME_SIZE);
}

constexpr ParameterRow ROWS[] = {
    {9539, "", "", 0, nullptr, nullptr},
    {9540, "", "", 0, nullptr, nullptr},
    {9541, "", "", 0, nullptr, nullptr},
    {HBL_DHCP_PARAM_LEASE_BEGIN_IP, "\"Lease Begin IP\"", "DHCP_PARAM_LEASE_START_IP",
     HBL_PARAM_DHCP_FIRST_ADDRESS, CheckAddress, nullptr},
    {HBL_DHCP_PARAM_LEASE_END_IP, "\"Lease End IP\"", "DHCP_PARAM_LEASE_END_IP", HBL_PARAM_DHCP_LAST_ADDRESS,
     CheckAddress, nullptr},
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
     "DHCP_PARAM_SUB_DEFAULT_LEASE_TIME", HBL_PARAM_DHCP_DEFAULT_LEASE, CheckSeconds, "1800"},
    {HBL_DHCP_PARAM_SUB_MAX_LEASE_DURATION_SEC, "\"Subnet Max Lease Duration\"",
     "DHCP_PARAM_SUB_MAX_LEASE_TIME", HBL_PARAM_DHCP_LONGEST_LEASE, CheckSeconds, "7200"},
    {HBL_DHCP_PARAM_UNKNOWN, "", "", 0, nullptr, nullptr},
};

// Stands for an id that has no row at all.
constexpr ParameterRow NO_ROW = {HBL_DHCP_PARAM_NO_ROW, "Invalid DHCP Parameter", "", 0, nullptr, nullptr};

// The subnet of a network as integers, refused when it has less than 8 addresses.
bool ReadSubnet(FunctionLog log, uint32_t vnet, uint32_t *network, uint32_t *mask) {
    char subnetText[HBL_IP_STR_SIZE];
    char maskText[HBL_IP_STR_SIZE];
    if (!HBLGetVnetSubnetAddr(vnet, subnetText, sizeof subnetText)) {
        log(LOG_ERR, "Cannot obtain subnet address");
        return false;
    }
    if (!HBLGetVnetSubnetMask(vnet, maskText, sizeof maskText)) {
        log(LOG_ERR, "Cannot obtain subnet netmask");
        return false;
    }
    uint32_t subnet;
    if (!HBLIPStr2Int(subnetText, &subnet) || !HBLIPStr2Int(maskText, mask)) {
        return false;
    }
    if (*mask > SMALLEST_SUBNET_MASK) {
        log(LOG_ERR, "The subnet: %s, mask: %s is too small, we need atleast 8 hosts", subnetText, maskText);
        return false;
    }
    *network = subnet & *mask;
    return true;
}

bool ComputeDefault(FunctionLog log, uint32_t id, uint32_t vnet, char *text, size_t) {
    uint32_t network;
    uint32_t mask;
    if (!ReadSubnet(log, vnet, &network, &mask)) {
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
        case HBL_DHCP_PARAM_ROUTERS:
            return HBLIPInt2Str(network + 2, text);
        default:
            PanicNotReached();  // all other rows have a constant
    }
}

void LogUnknown(FunctionLog log, uint32_t id) {
    log(LOG_ERR, "Invalid DHCP Param Name %d", static_cast<int>(id));
}

void LogNoSpace(FunctionLog log, const ParameterRow &row, size_t size, size_t needed) {
    log(LOG_ERR, "Insufficient space %zu to store value of DHCP parameter: %s, required: %zu", size,
        row.displayName, needed);
}

void LogNoSpaceForDefault(FunctionLog log, const ParameterRow &row, size_t size, size_t needed) {
    log(LOG_ERR, "Insufficient buffer size: %zu for DHCP parameter: %s required: %zu", size, row.displayName,
        needed);
}

constexpr ParameterFamily FAMILY = {
    .rows = ROWS,
    .rowForUnknown = &NO_ROW,
    .unknownId = HBL_DHCP_PARAM_UNKNOWN,
    .service = "DHCP",
    .lookedFor = "Value for",
    .notFoundLevel = LOG_ERR,
    .reverting = "Reverting to getting default value",
    .logUnreadable = LogUnknown,
    .logUnsettable = LogUnknown,
    .logNoSpace = LogNoSpace,
    .logNoSpaceForDefault = LogNoSpaceForDefault,
    .computeDefault = ComputeDefault,
    .getDefault = HBLDHCPGetParameterDefault,
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

std::span<const ParameterRow> HBLDHCPParameterRows() {
    return ROWS;
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
    const bool removed = HBLRemoveParameters(__func__, HBLDHCPRemoveParameter, vnet, REMOVALS, keptId);
    HBLRemoveVnetCfg(vnet, VNET_FIELD_DHCP_CFG_HASH);
    HBLNetCfgRemoveAllDHCPMACToIPMapping(nullptr, vnet, true);
    return removed;
}
