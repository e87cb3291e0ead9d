// Exported: whether a network has a host-only adapter. Changes the configuration only.
#include "lib/harbrel/harbrel.h"
#include "lib/harbrel/networks/featureSwitch.h"
#include "lib/harbrel/networks/settings.h"

namespace {

constexpr FeatureSwitch ADAPTER_SWITCH = {
    .function = "HBL_SetVnetUseAdapter",
    .arguments = "Arguments - v: %p,%s, uA: %u, c: %u",
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
    return HBLApiSwitchFeature(ADAPTER_SWITCH, vnet, useAdapter, cleanup);
}
