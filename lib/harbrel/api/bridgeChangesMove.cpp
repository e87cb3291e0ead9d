// The move of one host adapter between networks. A network other than the default is left with that one
// adapter: what was on it goes to the default.
#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/api/bridgeRestart.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/hostAdapterChain.h"
#include "lib/harbrel/bridging/bridging.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/harbrel.h"

namespace {

constexpr char RESTART_DESTINATION_FAILURE[] = "Failed to restart bridge service on destination vnet: %d";

struct AdapterMove {
    const char *adapter = nullptr;
    BridgeRestart source{HBL_VNET_NONE};
    BridgeRestart destination{HBL_VNET_NONE};
    BridgeRestart defaultBridge{HBL_VNET_NONE};
    HostAdapterChain displaced;
};

bool CheckNetwork(const char *function, const HBL_NetworkID *network) {
    if (!HBLValidateNetIDStruct(network)) {
        HBLLog(LOG_ERR, function, "Invalid destination network");
        return false;
    }
    return true;
}

bool SettleDestination(const char *function, const HBL_NetworkID *destination, AdapterMove *move) {
    if (destination != nullptr && !CheckNetwork(function, destination)) {
        return false;
    }
    move->destination.vnet = destination != nullptr ? destination->vnet : move->defaultBridge.vnet;
    return true;
}

bool SettleSource(const char *function, const HBL_NetworkID *source, AdapterMove *move) {
    if (source != nullptr) {
        if (!CheckNetwork(function, source)) {
            return false;
        }
        HBLLog(LOG_INFO2, function, "Checking source vnet: %d to see if it is bridged to adapter: %s",
               source->vnet, move->adapter);
    }
    if (!HBLGetHostAdapterBridge(move->adapter, &move->source.vnet)) {
        HBLLog(LOG_ERR, function, "Failed to get the bridge mapping for host adapter: %s, aborting",
               move->adapter);
        return false;
    }
    if (source != nullptr && source->vnet != move->source.vnet) {
        HBLLog(LOG_ERR, function, "Souce vnet: %d is not bridged to specified host adapter: %s", source->vnet,
               move->adapter);
        return false;
    }
    return true;
}

// Where the adapter comes from and where it goes to.
bool SettleNetworks(const char *function, const HBL_NetworkID *source, const HBL_NetworkID *destination,
                    AdapterMove *move) {
    if (!HBLGetDefaultBridgeVnet(&move->defaultBridge.vnet)) {
        HBLLog(LOG_ERR, function, "Failed to get value of default bridge");
        return false;
    }
    if (!SettleDestination(function, destination, move) || !SettleSource(function, source, move)) {
        return false;
    }
    HBLLog(LOG_INFO2, function, "SourceVnet: %d, DestinationVnet: %d", move->source.vnet,
           move->destination.vnet);
    return true;
}

// The adapters that have to leave the destination.
bool FindDisplaced(const char *function, AdapterMove *move) {
    const int32_t destination = move->destination.vnet;
    if (destination == move->defaultBridge.vnet || destination == HBL_VNET_NONE) {
        return true;
    }
    if (!HBLGetVnetBridge(destination, &move->displaced.count, &move->displaced.head)) {
        HBLLog(LOG_ERR, function, "Failed to get adapter bridged to vnet: %d", destination);
        return false;
    }
    return true;
}

// What the arrival of the adapter means for a real destination.
bool SettleInDestination(const char *function, AdapterMove *move) {
    if (!HBLSetBridgeMappingForMultipleAdapters(move->defaultBridge.vnet, move->displaced.head)) {
        HBLLog(LOG_ERR, function, "Failed to move adapters from destination vnet to default bridge");
        return false;
    }
    return move->destination.Restart(function, RESTART_DESTINATION_FAILURE) &&
           move->defaultBridge.Restart(function, RESTART_DESTINATION_FAILURE);
}

bool ApplyMove(const char *function, AdapterMove *move) {
    if (!HBLSetBridgeMapping(move->adapter, move->destination.vnet)) {
        HBLLog(LOG_ERR, function, "Unable to bridge host adapter: %s to vnet: %d", move->adapter,
               move->destination.vnet);
        return false;
    }
    if (move->destination.vnet != HBL_VNET_NONE && !SettleInDestination(function, move)) {
        return false;
    }
    return move->source.Restart(function, "Failed to restart bridge service on old default bridge: %d");
}

// Each step whatever the one before gave.
void RollBackMove(const char *function, const AdapterMove &move) {
    if (!HBLSetBridgeMapping(move.adapter, move.source.vnet)) {
        HBLLog(LOG_ERR, function, "Unable to restore host adapter: %s to its previous vnet: %d", move.adapter,
               move.source.vnet);
    }
    if (!HBLSetBridgeMappingForMultipleAdapters(move.destination.vnet, move.displaced.head)) {
        HBLLog(LOG_ERR, function, "Failed to move back adapters from default bridge to destination vnet");
    }
    move.source.Restore(function, "Failed to restart bridge service on source vnet: %d, during cleanup");
    move.destination.Restore(function,
                             "Failed to restart bridge service on destination vnet: %d, during cleanup");
    move.defaultBridge.Restore(function,
                               "Failed to restart bridge service on default bridge vnet: %d, during cleanup");
}

bool CheckAdapter(const char *function, const HBL_HostAdapter *adapter) {
    if (adapter == nullptr) {
        HBLLog(LOG_ERR, function, "Invalid arguments - adapter: %p", static_cast<const void *>(adapter));
        return false;
    }
    if (adapter->version != 1) {
        HBLLog(LOG_ERR, function, "Unsupported adapter version: %u", adapter->version);
        return false;
    }
    return true;
}

bool MoveUnderLock(const char *function, AdapterMove *move) {
    const ConfigLock lock(function);
    if (!lock.Held()) {
        return false;
    }
    if (!ApplyMove(function, move)) {
        RollBackMove(function, *move);
        return false;
    }
    return true;
}

}  // namespace

bool HBL_BridgeMoveAdapter(const HBL_HostAdapter *adapter, const HBL_NetworkID *source,
                           const HBL_NetworkID *destination) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    HBLLog(LOG_ARGS, __func__, "Arguments - a: %p, s: %p, d: %p", static_cast<const void *>(adapter),
           static_cast<const void *>(source), static_cast<const void *>(destination));
    if (!CheckAdapter(__func__, adapter)) {
        return false;
    }
    AdapterMove move;
    move.adapter = adapter->deviceName;
    if (!SettleNetworks(__func__, source, destination, &move)) {
        return false;
    }
    if (move.destination.vnet == move.source.vnet) {
        HBLLog(LOG_INFO, __func__, "Host adapter: %s is already configured as bridge for vnet: %d",
               move.adapter, move.destination.vnet);
        return true;
    }
    return FindDisplaced(__func__, &move) && MoveUnderLock(__func__, &move);
}
