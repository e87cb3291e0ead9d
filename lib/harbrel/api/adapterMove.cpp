// The move of one host adapter between networks. A network other than the default is left with that one
// adapter: what was on it goes to the default.
#include <cstring>

#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/api/bridgeRestart.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/hostAdapterChain.h"
#include "lib/harbrel/bridging/bridging.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/harbrel.h"

namespace {

struct AdapterMove {
    const char *adapter = nullptr;
    BridgeRestart source{HBL_VNET_NONE};
    BridgeRestart destination{HBL_VNET_NONE};
    BridgeRestart defaultBridge{HBL_VNET_NONE};
    HostAdapterChain displaced;
};

bool CheckNetwork(FunctionLog log, const HBL_NetworkID *network) {
    if (!HBLValidateNetIDStruct(network)) {
        log(LOG_ERR, "Invalid destination network");
        return false;
    }
    return true;
}

bool SettleDestination(FunctionLog log, const HBL_NetworkID *destination, AdapterMove *move) {
    if (destination != nullptr && !CheckNetwork(log, destination)) {
        return false;
    }
    move->destination.vnet = destination != nullptr ? destination->vnet : move->defaultBridge.vnet;
    return true;
}

bool SettleSource(FunctionLog log, const HBL_NetworkID *source, AdapterMove *move) {
    if (source != nullptr) {
        if (!CheckNetwork(log, source)) {
            return false;
        }
        log(LOG_INFO2, "Checking source vnet: %d to see if it is bridged to adapter: %s", source->vnet,
            move->adapter);
    }
    if (!HBLGetHostAdapterBridge(move->adapter, &move->source.vnet)) {
        log(LOG_ERR, "Failed to get the bridge mapping for host adapter: %s, aborting", move->adapter);
        return false;
    }
    if (source != nullptr && source->vnet != move->source.vnet) {
        log(LOG_ERR, "Souce vnet: %d is not bridged to specified host adapter: %s", source->vnet,
            move->adapter);
        return false;
    }
    return true;
}

// Where the adapter comes from and where it goes to.
bool SettleNetworks(FunctionLog log, const HBL_NetworkID *source, const HBL_NetworkID *destination,
                    AdapterMove *move) {
    if (!HBLGetDefaultBridgeVnet(&move->defaultBridge.vnet)) {
        log(LOG_ERR, "Failed to get value of default bridge");
        return false;
    }
    if (!SettleDestination(log, destination, move) || !SettleSource(log, source, move)) {
        return false;
    }
    log(LOG_INFO2, "SourceVnet: %d, DestinationVnet: %d", move->source.vnet, move->destination.vnet);
    return true;
}

// The adapters that have to leave the destination.
bool FindDisplaced(FunctionLog log, AdapterMove *move) {
    const int32_t destination = move->destination.vnet;
    if (destination == move->defaultBridge.vnet || destination == HBL_VNET_NONE) {
        return true;
    }
    if (!HBLGetVnetBridge(destination, &move->displaced)) {
        log(LOG_ERR, "Failed to get adapter bridged to vnet: %d", destination);
        return false;
    }
    return true;
}

// What the arrival of the adapter means for a real destination.
bool SettleInDestination(FunctionLog log, AdapterMove *move) {
    if (!HBLSetBridgeMappingForMultipleAdapters(move->defaultBridge.vnet, move->displaced)) {
        log(LOG_ERR, "Failed to move adapters from destination vnet to default bridge");
        return false;
    }
    constexpr char ROLE[] = "destination vnet";  // in the lines of both
    return move->destination.Restart(log, ROLE) && move->defaultBridge.Restart(log, ROLE);
}

bool ApplyMove(FunctionLog log, AdapterMove *move) {
    if (!HBLSetBridgeMapping(move->adapter, move->destination.vnet)) {
        log(LOG_ERR, "Unable to bridge host adapter: %s to vnet: %d", move->adapter, move->destination.vnet);
        return false;
    }
    if (move->destination.vnet != HBL_VNET_NONE && !SettleInDestination(log, move)) {
        return false;
    }
    return move->source.Restart(log, "old default bridge");
}

// Each step whatever the one before gave.
void RollBackMove(FunctionLog log, const AdapterMove &move) {
    if (!HBLSetBridgeMapping(move.adapter, move.source.vnet)) {
        log(LOG_ERR, "Unable to restore host adapter: %s to its previous vnet: %d", move.adapter,
            move.source.vnet);
    }
    if (!HBLSetBridgeMappingForMultipleAdapters(move.destination.vnet, move.displaced)) {
        log(LOG_ERR, "Failed to move back adapters from default bridge to destination vnet");
    }
    move.source.Restore(log, "source vnet", ",");
    move.destination.Restore(log, "destination vnet", ",");
    move.defaultBridge.Restore(log, "default bridge vnet", ",");
}

bool CheckAdapter(FunctionLog log, const HBL_HostAdapter *adapter) {
    if (adapter == nullptr) {
        log(LOG_ERR, "Invalid arguments - adapter: %p", Address(adapter));
        return false;
    }
    if (adapter->version != 1) {
        log(LOG_ERR, "Unsupported adapter version: %u", adapter->version);
        return false;
    }
    if (memchr(adapter->deviceName, '\0', sizeof adapter->deviceName) == nullptr) {
        log(LOG_ERR, "Name of host adapter has no end within %zu bytes", sizeof adapter->deviceName);
        return false;
    }
    return true;
}

bool MoveUnderLock(FunctionLog log, AdapterMove *move) {
    const ConfigLock lock(log);
    if (!lock.Held()) {
        return false;
    }
    if (!ApplyMove(log, move)) {
        RollBackMove(log, *move);
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
    frame.log(LOG_ARGS, "Arguments - a: %p, s: %p, d: %p", Address(adapter), Address(source),
              Address(destination));
    if (!CheckAdapter(frame.log, adapter)) {
        return false;
    }
    AdapterMove move;
    move.adapter = adapter->deviceName;
    if (!SettleNetworks(frame.log, source, destination, &move)) {
        return false;
    }
    if (move.destination.vnet == move.source.vnet) {
        frame.log(LOG_INFO, "Host adapter: %s is already configured as bridge for vnet: %d", move.adapter,
                  move.destination.vnet);
        return true;
    }
    return FindDisplaced(frame.log, &move) && MoveUnderLock(frame.log, &move);
}
