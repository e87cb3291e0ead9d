// Exported: whether a network has a host-only adapter. Changes the configuration only.
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/harbrel.h"
#include "lib/harbrel/networks/featureSwitch.h"
#include "lib/harbrel/networks/settings.h"

namespace {

constexpr FeatureSwitch ADAPTER_SWITCH = {
    .option = HBL_OPTION_VIRTUAL_ADAPTER,
    .set = HBLSetVnetUseAdapter,
    .same = "Current Adapter status and requested status are same",
    .cleanedUp = {"Cleaned up existing adapter configuration values for vnet: ", ""},
    .cleanupFailed = {"Failed to cleanup existing adapter configuration values for vnet: ", ""},
    .logChanging = [](FunctionLog log, bool, bool) { log(LOG_INFO2, "Changing Adapter status"); },
    .assigning = {"Attemping to configure subnet for vnet"},
    .assignFailed = {"Failed to assign subnet to vnet"},
    .assigned = {"New subnet configured"},
    .assignedLevel = LOG_INFO,
    .turnedOn = {"Success in configuring Adapter for the vnet"},
    .turnOnFailed = {"Configuring Adapter failed on vnet: ", ", current status unknown"},
    .turnedOff = {"Success in unconfiguring Adapter on vnet: ", ""},
    .turnOffFailed = {"Unconfiguring Adapter failed on vnet: ", ", current status unknown"},
};

}  // namespace

bool HBL_SetVnetUseAdapter(const char *vnet, bool useAdapter, bool cleanup) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    frame.log(LOG_ARGS, "Arguments - v: %p,%s, uA: %u, c: %u", Address(vnet), TextOrNull(vnet), useAdapter,
              cleanup);
    return HBLApiSwitchFeature(frame.log, ADAPTER_SWITCH, vnet, useAdapter, cleanup);
}
