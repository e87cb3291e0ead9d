// Choosing an unused subnet, assigning it to a vnet and taking it away.
#include "lib/harbrel/networks/subnets.h"

#include <mutex>

#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/harbrel/networks/subnetTables.h"
#include "lib/string/str.h"

namespace {

constexpr int MAX_FAILED_PINGS = 10;
constexpr const char *CANDIDATE_MASK = "255.255.255.0";
constexpr uint32_t PROBE_TIMEOUT_SECONDS = 2;
constexpr uint32_t PROBE_INTERVAL = 1;  // as orvane-ping counts it

bool TakeCandidate(uint32_t *address) {
    const std::lock_guard hold(HBLSubnetTablesGuard());
    SubnetTables &tables = HBLSubnetTables();
    HBLBuildSubnetCandidates(tables);
    return HBLTakeSubnetCandidate(tables, address);
}

}  // namespace

bool HBLSubnetProbe(char *subnet, char *mask) {
    if (subnet == nullptr || mask == nullptr) {
        return false;
    }
    uint32_t address = 0;
    int failedPings = 0;
    while (TakeCandidate(&address)) {
        char candidate[HBL_IP_STR_SIZE];
        HBLIPInt2Str(address, candidate);
        HBLLog(LOG_INFO, __func__, "Pinging to see if subnet is used");
        if (HBLPingAndCheckSubnet(candidate, true, PROBE_TIMEOUT_SECONDS, PROBE_INTERVAL)) {
            Str_Strcpy(subnet, candidate, HBL_IP_STR_SIZE);
            Str_Strcpy(mask, CANDIDATE_MASK, HBL_IP_STR_SIZE);
            return true;
        }
        if (++failedPings == MAX_FAILED_PINGS) {
            HBLLog(LOG_ERR, __func__, "Could not automatically determine available subnet.");
            return false;
        }
    }
    return false;
}

bool HBLAssignUnusedSubnetAddressToVNet(uint32_t vnet) {
    const int number = static_cast<int>(vnet);
    char subnet[HBL_IP_STR_SIZE];
    char mask[HBL_IP_STR_SIZE];
    if (!HBLSubnetProbe(subnet, mask)) {
        HBLLog(LOG_ERR, __func__, "Failed to probe subnet for vnet %d.", number);
        return false;
    }
    if (!HBLIPStrIsValid(subnet)) {
        HBLLog(LOG_ERR, __func__, "Error converting IP from string to integer");
        return false;
    }
    if (!HBLSetVnetCfg(vnet, VNET_FIELD_SUBNET, subnet)) {
        HBLLog(LOG_ERR, __func__, "Error setting subnet value: %s in vnet config", subnet);
        return false;
    }
    if (!HBLSetVnetCfg(vnet, VNET_FIELD_NETMASK, mask)) {
        HBLLog(LOG_ERR, __func__, "Error setting subnet mask: %s in vnet config", mask);
        return false;
    }
    HBLLog(LOG_OK, __func__, "Success: vnet %d assigned subnet %s.", number, subnet);
    return true;
}

bool HBLGetHostOnlySubnet(uint32_t vnet, uint32_t *address) {
    char subnet[HBL_IP_STR_SIZE];
    size_t size = sizeof subnet;
    if (!HBLGetVnetCfgCpy(vnet, VNET_FIELD_SUBNET, subnet, &size)) {
        return false;
    }
    HBLLog(LOG_INFO2, __func__, "Got existing subnet for vnet %d.", static_cast<int>(vnet));
    return HBLIPStr2Int(subnet, address);
}

bool HBLRemoveVnetSubnetAddr(uint32_t vnet) {
    char subnet[HBL_IP_STR_SIZE];
    if (HBLVnetIsOptionConfigured(vnet, HBL_OPTION_SUBNET) &&
        HBLGetVnetSubnetAddr(vnet, subnet, sizeof subnet)) {
        HBLLog(LOG_INFO, __func__, "Marking subnet: %s as unused", subnet);
        HBLMarkSubnetProbed(subnet, 0);
    }
    return HBLRemoveVnetCfg(vnet, VNET_FIELD_SUBNET);
}

bool HBLRemoveVnetSubnet(uint32_t vnet) {
    return HBLRemoveVnetSubnetAddr(vnet) && HBLRemoveVnetSubnetMask(vnet);
}
