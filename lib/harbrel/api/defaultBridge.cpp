// Exported: the network that bridges by default, and its change.
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

bool ApplyDefaultBridge(FunctionLog log, DefaultBridgeChange *change) {
    const int32_t newVnet = change->newDefault.vnet;
    if (!HBLGetVnetBridge(MappingSource(newVnet), &change->adapters)) {
        log(LOG_ERR, "Error creating list of adapters on host");
        return false;
    }
    log(LOG_INFO2, "Obtained list of %u adapters", change->adapters.Count());
    if (!HBLSetBridgeMappingForMultipleAdapters(MAPPING_TARGET, change->adapters)) {
        log(LOG_ERR, "Failed to set the bridge mappings, vnet: %d", MAPPING_TARGET);
        return false;
    }
    if (!HBLSetDefaultBridgeVnet(newVnet)) {
        log(LOG_INFO, "Failed to set value of default bridge: %d", newVnet);
        return false;
    }
    return change->oldDefault.Restart(log, "old default bridge") &&
           change->newDefault.Restart(log, "new default bridge");
}

// Each step whatever the one before gave.
void RollBackDefaultBridge(FunctionLog log, const DefaultBridgeChange &change) {
    const int32_t source = MappingSource(change.newDefault.vnet);
    if (!HBLSetDefaultBridgeVnet(change.oldDefault.vnet)) {
        log(LOG_INFO, "Failed to restore value of default bridge: %d", change.oldDefault.vnet);
    }
    if (!HBLSetBridgeMappingForMultipleAdapters(source, change.adapters)) {
        log(LOG_ERR, "Failed to restore the bridge mappings for vnet: %d", source);
    }
    change.oldDefault.Restore(log, "old default bridge", "");
    change.newDefault.Restore(log, "old default bridge", "");  // the same line for both
}

bool CheckNewDefault(FunctionLog log, const HBL_NetworkID *netId) {
    if (netId == nullptr || !HBLValidateNetIDStruct(netId)) {
        log(LOG_ERR, "Invalid arguments - netId: %p", Address(netId));
        return false;
    }
    if (netId->vnet != AUTO_BRIDGED_VNET && netId->vnet != HBL_VNET_NONE) {
        log(LOG_ERR, "Invalid vnet number for default bridge: %d", netId->vnet);
        return false;
    }
    return true;
}

}  // namespace

bool HBL_GetBridgeDefaultNetwork(HBL_NetworkID *netId) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    frame.log(LOG_ARGS, "Arguments - n: %p", Address(netId));
    if (netId == nullptr) {
        frame.log(LOG_ERR, "Invalid argument - netId: %p", Address(netId));
        return false;
    }
    if (netId->version != 1) {
        frame.log(LOG_ERR, "Unsupported version number: %u", netId->version);
        return false;
    }
    int32_t vnet;
    if (!HBLGetDefaultBridgeVnet(&vnet)) {
        frame.log(LOG_ERR, "Failed to get value of default bridge");
        return false;
    }
    netId->type = HBL_NETWORK_TYPE_VNET;
    netId->vnet = vnet;
    return true;
}

bool HBL_SetBridgeDefaultNetwork(const HBL_NetworkID *netId) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    frame.log(LOG_ARGS, "Arguments - n: %p", Address(netId));
    if (!CheckNewDefault(frame.log, netId)) {
        return false;
    }
    int32_t oldVnet;
    if (!HBLGetDefaultBridgeVnet(&oldVnet)) {
        frame.log(LOG_ERR, "Failed to get value of default bridge");
        return false;
    }
    if (netId->vnet == oldVnet) {
        frame.log(LOG_INFO, "Current and requested values of DefaultBridgeVnet are same. Nothing to do");
        return true;
    }
    const ConfigLock lock(frame.log);
    if (!lock.Held()) {
        return false;
    }
    DefaultBridgeChange change{.oldDefault = {oldVnet}, .newDefault = {netId->vnet}};
    if (!ApplyDefaultBridge(frame.log, &change)) {
        RollBackDefaultBridge(frame.log, change);
        return false;
    }
    return true;
}
