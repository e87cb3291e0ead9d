// Exported: whether a network has a host-only adapter. Changes the configuration only.
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/harbrel.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/harbrel/networks/subnets.h"

namespace {

bool KeepAsItIs(const char *function, const char *vnet, uint32_t number, bool useAdapter, bool cleanup) {
    HBLLog(LOG_INFO, function, "Current Adapter status and requested status are same");
    if (!cleanup) {
        return true;
    }
    if (!HBLSetVnetUseAdapter(number, useAdapter, cleanup)) {
        HBLLog(LOG_ERR, function, "Failed to cleanup existing adapter configuration values for vnet: %s",
               vnet);
        return false;
    }
    HBLLog(LOG_INFO, function, "Cleaned up existing adapter configuration values for vnet: %s", vnet);
    return true;
}

bool TurnOn(const char *function, const char *vnet, uint32_t number, bool cleanup) {
    const bool hadSubnet = HBLVnetIsOptionConfigured(number, HBL_OPTION_SUBNET);
    if (!hadSubnet) {
        HBLLog(LOG_INFO2, function, "Attemping to configure subnet for vnet");
        if (!HBLAssignUnusedSubnetAddressToVNet(number)) {
            HBLLog(LOG_ERR, function, "Failed to assign subnet to vnet");
            HBLRemoveVnetSubnet(number);
            return false;
        }
        HBLLog(LOG_INFO, function, "New subnet configured");
    }
    if (!HBLSetVnetUseAdapter(number, true, cleanup)) {
        HBLLog(LOG_ERR, function, "Configuring Adapter failed on vnet: %s, current status unknown", vnet);
        if (!hadSubnet) {
            HBLRemoveVnetSubnet(number);
        }
        return false;
    }
    HBLLog(LOG_OK, function, "Success in configuring Adapter for the vnet");
    return true;
}

bool TurnOff(const char *function, const char *vnet, uint32_t number, bool cleanup) {
    if (!HBLSetVnetUseAdapter(number, false, cleanup)) {
        HBLLog(LOG_ERR, function, "Unconfiguring Adapter failed on vnet: %s, current status unknown", vnet);
        return false;
    }
    HBLLog(LOG_OK, function, "Success in unconfiguring Adapter on vnet: %s", vnet);
    return true;
}

}  // namespace

bool HBL_SetVnetUseAdapter(const char *vnet, bool useAdapter, bool cleanup) {
    const ApiFrame frame(__func__);
    if (!frame.Loaded()) {
        return false;
    }
    HBLLog(LOG_ARGS, __func__, "Arguments - v: %p,%s, uA: %u, c: %u", static_cast<const void *>(vnet),
           TextOrNull(vnet), useAdapter, cleanup);
    uint32_t number = 0;
    if (!ApiVnetArgument(__func__, vnet, &number)) {
        return false;
    }
    const ConfigLock lock(__func__);
    if (!lock.Held()) {
        return false;
    }
    if (useAdapter == HBLVnetIsOptionConfigured(number, HBL_OPTION_VIRTUAL_ADAPTER)) {
        return KeepAsItIs(__func__, vnet, number, useAdapter, cleanup);
    }
    HBLLog(LOG_INFO2, __func__, "Changing Adapter status");
    return useAdapter ? TurnOn(__func__, vnet, number, cleanup) : TurnOff(__func__, vnet, number, cleanup);
}
