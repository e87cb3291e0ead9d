// What follows from the settings of a vnet: computed defaults, and whether an option is configured.
#include <cstring>

#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/hostAdapterChain.h"
#include "lib/harbrel/base/services.h"
#include "lib/harbrel/bridging/bridging.h"
#include "lib/harbrel/networks/settings.h"

namespace {

struct ServiceOption {
    uint32_t service;
    uint32_t option;
};

constexpr ServiceOption SERVICE_OPTIONS[] = {
    {HBL_SVC_BRIDGE, HBL_OPTION_BRIDGE},
    {HBL_SVC_NETIFUP, HBL_OPTION_VIRTUAL_ADAPTER},
    {HBL_SVC_DHCP, HBL_OPTION_DHCP},
    {HBL_SVC_NAT, HBL_OPTION_NAT},
};

enum class Stored { Copied, Missing, DoesNotFit };

Stored ReadStored(uint32_t vnet, const char *field, char *out, size_t size) {
    size_t length = size;
    if (HBLGetVnetCfgCpy(vnet, field, out, &length)) {
        return Stored::Copied;
    }
    return length == size ? Stored::Missing : Stored::DoesNotFit;  // the length changes only if there is one
}

bool CopyIfFits(const char *text, char *out, size_t size) {
    const size_t needed = strlen(text) + 1;
    if (needed > size) {
        return false;
    }
    memcpy(out, text, needed);
    return true;
}

// The address that the adapter of a vnet takes when none is stored.
bool ComputeAdapterAddr(uint32_t vnet, char *out, size_t size, FunctionLog log) {
    char subnet[HBL_IP_STR_SIZE];
    if (!HBLGetVnetSubnetAddr(vnet, subnet, sizeof subnet)) {
        log(LOG_ERR, "Getting Subnet Address failed");
        return false;
    }
    char address[HBL_IP_STR_SIZE];
    if (!HBLGetDefaultAdapterAddr(subnet, address)) {
        log(LOG_ERR, "Could not calculate adapter address");
        return false;
    }
    if (!CopyIfFits(address, out, size)) {
        log(LOG_ERR, "Insufficient buffer length: %zu for adapter address", size);
        return false;
    }
    return true;
}

bool IsBridged(uint32_t vnet, FunctionLog log) {
    const auto number = static_cast<int32_t>(vnet);
    int32_t defaultVnet = HBL_VNET_NONE;
    if (!HBLGetDefaultBridgeVnet(&defaultVnet)) {
        log(LOG_ERR, "Failed to get the value of default bridge");
    } else if (defaultVnet == number) {
        return true;
    }
    HostAdapterChain adapters;
    if (!HBLGetVnetBridge(number, &adapters)) {
        log(LOG_ERR, "Cannot get bridge mappings for vnet: %d", number);
        return false;
    }
    return adapters.Count() > 0;
}

}  // namespace

bool HBLGetVnetVirtAdapterName(uint32_t vnet, char *out, size_t size) {
    const Stored stored = ReadStored(vnet, VNET_FIELD_ADAPTER_NAME, out, size);
    return stored == Stored::Copied ||
           (stored == Stored::Missing && CopyIfFits(HBLVnetName(vnet).text, out, size));
}

bool HBLGetVnetVirtAdapterAddr(uint32_t vnet, char *out, size_t size, bool computeDefault) {
    const Stored stored = ReadStored(vnet, VNET_FIELD_ADAPTER_ADDR, out, size);
    return stored == Stored::Copied ||
           (stored == Stored::Missing && computeDefault && ComputeAdapterAddr(vnet, out, size, __func__));
}

bool HBLVnetIsOptionConfigured(uint32_t vnet, uint32_t option) {
    switch (option) {
        case HBL_OPTION_BRIDGE:
            return IsBridged(vnet, __func__);
        case HBL_OPTION_DHCP:
            return HBLVnetUsesDHCP(vnet);
        case HBL_OPTION_NAT:
            return HBLVnetUsesNAT(vnet);
        case HBL_OPTION_VIRTUAL_ADAPTER:
            return HBLGetVnetCfgBool(vnet, VNET_FIELD_ADAPTER);
        case HBL_OPTION_SUBNET:
            return HBLGetVnetCfg(vnet, VNET_FIELD_SUBNET).has_value();
        default:
            return false;
    }
}

uint32_t HBLServiceToVnetOption(uint32_t service) {
    for (const ServiceOption &row : SERVICE_OPTIONS) {
        if (row.service == service) {
            return row.option;
        }
    }
    return HBL_OPTION_NONE;
}

bool HBLIPBelongsToSubnet(uint32_t vnet, const char *address) {
    char subnet[HBL_IP_STR_SIZE];
    char mask[HBL_IP_STR_SIZE];
    if (!HBLGetVnetSubnetAddr(vnet, subnet, sizeof subnet) ||
        !HBLGetVnetSubnetMask(vnet, mask, sizeof mask)) {
        HBLLog(LOG_ERR, __func__, "Getting subnet address failed");
        return false;
    }
    uint32_t addressBits;
    uint32_t subnetBits;
    uint32_t maskBits;
    return HBLIPStr2Int(address, &addressBits) && HBLIPStr2Int(subnet, &subnetBits) &&
           HBLIPStr2Int(mask, &maskBits) && (addressBits & maskBits) == subnetBits;
}
