// The change of the default bridge value, and the removal of a vnet from bridging.
#include "lib/harbrel/api/bridgeChanges.h"

#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/api/bridgeRestart.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/hostAdapterChain.h"
#include "lib/harbrel/bridging/bridging.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/harbrel.h"

namespace {

constexpr int32_t AUTO_BRIDGED_VNET = 0;  // the only network that can be the default bridge

struct DefaultBridgeChange {
    BridgeRestart oldDefault;
    BridgeRestart newDefault;
    HostAdapterChain adapters{};  // those that were bridged to the source
};

// Whose adapters the change maps to MAPPING_TARGET: those of the default when it goes away, which pins them
// to where they are; those that are bridged to nothing when it comes back.
constexpr int32_t MappingSource(int32_t newDefault) {
    return newDefault == AUTO_BRIDGED_VNET ? HBL_VNET_NONE : AUTO_BRIDGED_VNET;
}
constexpr int32_t MAPPING_TARGET = AUTO_BRIDGED_VNET;

bool ApplyDefaultBridge(const char *function, DefaultBridgeChange *change) {
    const int32_t newVnet = change->newDefault.vnet;
    HostAdapterChain *const adapters = &change->adapters;
    if (!HBLGetVnetBridge(MappingSource(newVnet), &adapters->count, &adapters->head)) {
        HBLLog(LOG_ERR, function, "Error creating list of adapters on host");
        return false;
    }
    HBLLog(LOG_INFO2, function, "Obtained list of %u adapters", adapters->count);
    if (!HBLSetBridgeMappingForMultipleAdapters(MAPPING_TARGET, adapters->head)) {
        HBLLog(LOG_ERR, function, "Failed to set the bridge mappings, vnet: %d", MAPPING_TARGET);
        return false;
    }
    if (!HBLSetDefaultBridgeVnet(newVnet)) {
        HBLLog(LOG_INFO, function, "Failed to set value of default bridge: %d", newVnet);
        return false;
    }
    return change->oldDefault.Restart(function,
                                      "Failed to restart bridge service on old default bridge: %d") &&
           change->newDefault.Restart(function, "Failed to restart bridge service on new default bridge: %d");
}

// Each step whatever the one before gave.
void RollBackDefaultBridge(const char *function, const DefaultBridgeChange &change) {
    const int32_t source = MappingSource(change.newDefault.vnet);
    if (!HBLSetDefaultBridgeVnet(change.oldDefault.vnet)) {
        HBLLog(LOG_INFO, function, "Failed to restore value of default bridge: %d", change.oldDefault.vnet);
    }
    if (!HBLSetBridgeMappingForMultipleAdapters(source, change.adapters.head)) {
        HBLLog(LOG_ERR, function, "Failed to restore the bridge mappings for vnet: %d", source);
    }
    constexpr char RESTORE_FAILURE[] =
        "Failed to restart bridge service on old default bridge: %d during cleanup";
    change.oldDefault.Restore(function, RESTORE_FAILURE);
    change.newDefault.Restore(function, RESTORE_FAILURE);
}

bool CheckNewDefault(const char *function, const HBL_NetworkID *netId) {
    if (netId == nullptr || !HBLValidateNetIDStruct(netId)) {
        HBLLog(LOG_ERR, function, "Invalid arguments - netId: %p", static_cast<const void *>(netId));
        return false;
    }
    if (netId->vnet != AUTO_BRIDGED_VNET && netId->vnet != HBL_VNET_NONE) {
        HBLLog(LOG_ERR, function, "Invalid vnet number for default bridge: %d", netId->vnet);
        return false;
    }
    return true;
}

}  // namespace

bool HBL_SetBridgeDefaultNetwork(const HBL_NetworkID *netId) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    HBLLog(LOG_ARGS, __func__, "Arguments - n: %p", static_cast<const void *>(netId));
    if (!CheckNewDefault(__func__, netId)) {
        return false;
    }
    int32_t oldVnet;
    if (!HBLGetDefaultBridgeVnet(&oldVnet)) {
        HBLLog(LOG_ERR, __func__, "Failed to get value of default bridge");
        return false;
    }
    if (netId->vnet == oldVnet) {
        HBLLog(LOG_INFO, __func__,
               "Current and requested values of DefaultBridgeVnet are same. Nothing to do");
        return true;
    }
    const ConfigLock lock(__func__);
    if (!lock.Held()) {
        return false;
    }
    DefaultBridgeChange change{.oldDefault = {oldVnet}, .newDefault = {netId->vnet}};
    if (!ApplyDefaultBridge(__func__, &change)) {
        RollBackDefaultBridge(__func__, change);
        return false;
    }
    return true;
}

bool HBLRemoveBridgeMappingsForVnet(uint32_t vnet) {
    const auto number = static_cast<int32_t>(vnet);
    bool allWorked = true;
    int32_t defaultVnet = HBL_VNET_NONE;
    if (!HBLGetDefaultBridgeVnet(&defaultVnet)) {
        HBLLog(LOG_ERR, __func__, "Failed to get value of default bridge");
        allWorked = false;
    }
    HostAdapterChain adapters;
    if (!HBLGetVnetBridge(number, &adapters.count, &adapters.head)) {
        HBLLog(LOG_ERR, __func__, "Failed to get list of adapters bridged to vnet: %d", number);
        allWorked = false;
    }
    if (number == defaultVnet) {
        defaultVnet = HBL_VNET_NONE;
        if (!HBLSetDefaultBridgeVnet(defaultVnet)) {
            HBLLog(LOG_ERR, __func__, "Failed to set value of default bridge");
            allWorked = false;
        }
    }
    if (!HBLSetBridgeMappingForMultipleAdapters(defaultVnet, adapters.head)) {
        HBLLog(LOG_ERR, __func__, "Failed to set the bridge mapping for vnet: %d, host adapter: %s",
               defaultVnet, adapters.head->deviceName);
        allWorked = false;
    }
    BridgeRestart remaining{defaultVnet};
    if (!remaining.Restart(__func__, "Failed to restart bridge service on default bridge: %d")) {
        allWorked = false;
    }
    return allWorked;
}
