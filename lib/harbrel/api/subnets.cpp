// Exported: looking for a free subnet, asking whether a vnet's own is free, and assigning one.
#include "lib/harbrel/networks/subnets.h"

#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/harbrel.h"
#include "lib/harbrel/networks/settings.h"

namespace {

bool AssignUnderLock(FunctionLog log, const char *vnet, uint32_t number) {
    const ConfigLock lock(log);
    if (!lock.Held()) {
        return false;
    }
    if (!HBLAssignUnusedSubnetAddressToVNet(number)) {
        log(LOG_ERR, "Failed to assign subnet to vnet: %s", vnet);
        return false;
    }
    log(LOG_OK, "New subnet configured for vnet: %s", vnet);
    char subnet[HBL_IP_STR_SIZE];
    if (HBLGetVnetSubnetAddr(number, subnet, sizeof subnet)) {
        log(LOG_INFO2, "Subnet address: %s", subnet);
    }
    return true;
}

}  // namespace

bool HBL_GetUnusedSubnet(char *subnet, uint32_t subnetLen, char *mask, uint32_t maskLen) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    frame.log(LOG_ARGS, "Arguments - s: %p, sl: %u, m: %p, ml: %u", Address(subnet), subnetLen, Address(mask),
              maskLen);
    if (subnet == nullptr || mask == nullptr || subnetLen < HBL_IP_STR_SIZE || maskLen < HBL_IP_STR_SIZE) {
        frame.log(LOG_ERR, "Invalid arguments");
        return false;
    }
    if (!HBLSubnetProbe(subnet, mask)) {
        frame.log(LOG_ERR, "Failed to probe for unused subnet");
        return false;
    }
    frame.log(LOG_OK, "Obtained unused subnet: %s, mask: %s", subnet, mask);
    return true;
}

bool HBL_CheckSubnetAvailability(const char *vnet, bool broadcast, uint32_t timeout, uint32_t interval,
                                 bool *available) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    frame.log(LOG_ARGS, "Arguments - v: %p,%s, b: %u, t: %u, i: %u, a: %p", Address(vnet), TextOrNull(vnet),
              broadcast, timeout, interval, Address(available));
    if (vnet == nullptr || available == nullptr) {
        frame.log(LOG_ERR, "Invalid argument - vnet: %p, available: %p", Address(vnet), Address(available));
        return false;
    }
    uint32_t number = 0;
    if (!ApiVnetNumber(frame.log, vnet, &number)) {
        return false;
    }
    char subnet[HBL_IP_STR_SIZE];
    if (!HBLGetVnetSubnetAddr(number, subnet, sizeof subnet)) {
        frame.log(LOG_ERR, "Failure in getting subnet address");
        return false;
    }
    *available = HBLPingAndCheckSubnet(subnet, broadcast, timeout, interval);
    frame.log(LOG_OK, "Subnet: %s on vnet: %s is %srechable", subnet, vnet, *available ? "" : "not ");
    return true;
}

bool HBL_AssignSubnetAddressToVnet(const char *vnet, bool overwriteExisting) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    frame.log(LOG_ARGS, "Arguments - v: %p,%s, oE: %u", Address(vnet), TextOrNull(vnet), overwriteExisting);
    uint32_t number = 0;
    if (!ApiVnetArgument(frame.log, vnet, &number)) {
        return false;
    }
    if (HBLVnetIsOptionConfigured(number, HBL_OPTION_SUBNET)) {
        if (!overwriteExisting) {
            frame.log(LOG_INFO2, "Not overwriting existing subnet");
            return true;
        }
        frame.log(LOG_INFO2, "Overwriting existing subnet");
    }
    return AssignUnderLock(frame.log, vnet, number);
}
