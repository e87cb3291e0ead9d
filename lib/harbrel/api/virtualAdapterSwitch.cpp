// Exported: whether a network has a host-only adapter. Changes the configuration only.
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/harbrel.h"
#include "lib/harbrel/networks/featureSwitch.h"
#include "lib/harbrel/networks/settings.h"

namespace {

constexpr FeatureSwitch ADAPTER_SWITCH = {
    .function = "HBL_SetVnetUseAdapter",
    .option = HBL_OPTION_VIRTUAL_ADAPTER,
    .set = HBLSetVnetUseAdapter,
    .same = "Current Adapter status and requested status are same",
    .cleanedUp = "Cleaned up existing adapter configuration values for vnet: %s",
    .cleanupFailed = "Failed to cleanup existing adapter configuration values for vnet: %s",
    .changing = "Changing Adapter status",
    .assigning = "Attemping to configure subnet for vnet",
    .assignFailed = "Failed to assign subnet to vnet",
    .assigned = "New subnet configured",
    .assignedLevel = LOG_INFO,
    .turnedOn = "Success in configuring Adapter for the vnet",
    .turnOnFailed = "Configuring Adapter failed on vnet: %s, current status unknown",
    .takingBack = nullptr,
    .turnedOff = "Success in unconfiguring Adapter on vnet: %s",
    .turnOffFailed = "Unconfiguring Adapter failed on vnet: %s, current status unknown",
};

}  // namespace

bool HBL_SetVnetUseAdapter(const char *vnet, bool useAdapter, bool cleanup) {
    const ApiFrame frame(__func__);
    if (!frame.Loaded()) {
        return false;
    }
    HBLLog(LOG_ARGS, __func__, "Arguments - v: %p,%s, uA: %u, c: %u", static_cast<const void *>(vnet),
           TextOrNull(vnet), useAdapter, cleanup);
    uint32_t number = 0;
    return ApiVnetArgument(__func__, vnet, &number) &&
           HBLSwitchFeature(ADAPTER_SWITCH, vnet, number, useAdapter, cleanup);
}
