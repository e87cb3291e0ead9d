// Exported: looking for a free subnet, asking whether a vnet's own is free, and assigning one.
#include "lib/harbrel/networks/subnets.h"

#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/harbrel.h"
#include "lib/harbrel/networks/settings.h"

namespace {

bool AssignUnderLock(const char *function, const char *vnet, uint32_t number) {
    const ConfigLock lock(function);
    if (!lock.Held()) {
        return false;
    }
    if (!HBLAssignUnusedSubnetAddressToVNet(number)) {
        HBLLog(LOG_ERR, function, "Failed to assign subnet to vnet: %s", vnet);
        return false;
    }
    HBLLog(LOG_OK, function, "New subnet configured for vnet: %s", vnet);
    char subnet[HBL_IP_STR_SIZE];
    if (HBLGetVnetSubnetAddr(number, subnet, sizeof subnet)) {
        HBLLog(LOG_INFO2, function, "Subnet address: %s", subnet);
    }
    return true;
}

}  // namespace

bool HBL_GetUnusedSubnet(char *subnet, uint32_t subnetLen, char *mask, uint32_t maskLen) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    HBLLog(LOG_ARGS, __func__, "Arguments - s: %p, sl: %u, m: %p, ml: %u", static_cast<const void *>(subnet),
           subnetLen, static_cast<const void *>(mask), maskLen);
    if (subnet == nullptr || mask == nullptr || subnetLen < HBL_IP_STR_SIZE || maskLen < HBL_IP_STR_SIZE) {
        HBLLog(LOG_ERR, __func__, "Invalid arguments");
        return false;
    }
    if (!HBLSubnetProbe(subnet, mask)) {
        HBLLog(LOG_ERR, __func__, "Failed to probe for unused subnet");
        return false;
    }
    HBLLog(LOG_OK, __func__, "Obtained unused subnet: %s, mask: %s", subnet, mask);
    return true;
}

bool HBL_CheckSubnetAvailability(const char *vnet, bool broadcast, uint32_t timeout, uint32_t interval,
                                 bool *available) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    HBLLog(LOG_ARGS, __func__, "Arguments - v: %p,%s, b: %u, t: %u, i: %u, a: %p",
           static_cast<const void *>(vnet), TextOrNull(vnet), broadcast, timeout, interval,
           static_cast<const void *>(available));
    if (vnet == nullptr || available == nullptr) {
        HBLLog(LOG_ERR, __func__, "Invalid argument - vnet: %p, available: %p",
               static_cast<const void *>(vnet), static_cast<const void *>(available));
        return false;
    }
    uint32_t number = 0;
    if (!ApiVnetNumber(__func__, vnet, &number)) {
        return false;
    }
    char subnet[HBL_IP_STR_SIZE];
    if (!HBLGetVnetSubnetAddr(number, subnet, sizeof subnet)) {
        HBLLog(LOG_ERR, __func__, "Failure in getting subnet address");
        return false;
    }
    *available = HBLPingAndCheckSubnet(subnet, broadcast, timeout, interval);
    HBLLog(LOG_OK, __func__, "Subnet: %s on vnet: %s is %srechable", subnet, vnet, *available ? "" : "not ");
    return true;
}

bool HBL_AssignSubnetAddressToVnet(const char *vnet, bool overwriteExisting) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    HBLLog(LOG_ARGS, __func__, "Arguments - v: %p,%s, oE: %u", static_cast<const void *>(vnet),
           TextOrNull(vnet), overwriteExisting);
    uint32_t number = 0;
    if (!ApiVnetArgument(__func__, vnet, &number)) {
        return false;
    }
    if (HBLVnetIsOptionConfigured(number, HBL_OPTION_SUBNET)) {
        if (!overwriteExisting) {
            HBLLog(LOG_INFO2, __func__, "Not overwriting existing subnet");
            return true;
        }
        HBLLog(LOG_INFO2, __func__, "Overwriting existing subnet");
    }
    return AssignUnderLock(__func__, vnet, number);
}
