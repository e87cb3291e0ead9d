// The exported calls about bridging, with their structures filled in.
#pragma once

#include <cstring>

#include "lib/harbrel/harbrel.h"

inline HBL_NetworkID NetworkOf(int32_t vnet, uint32_t version = 1) {
    return {version, HBL_NETWORK_TYPE_VNET, vnet, {}};
}

inline HBL_HostAdapter AdapterCalled(const char *name, uint32_t version = 1) {
    HBL_HostAdapter adapter = {};
    adapter.version = version;
    strcpy(adapter.deviceName, name);
    return adapter;
}

inline bool SetDefaultBridge(int32_t vnet, uint32_t version = 1) {
    const HBL_NetworkID network = NetworkOf(vnet, version);
    return HBL_SetBridgeDefaultNetwork(&network);
}

inline bool MoveAdapter(const char *name, int32_t destination, uint32_t version = 1) {
    const HBL_HostAdapter adapter = AdapterCalled(name, version);
    const HBL_NetworkID network = NetworkOf(destination, version);
    return HBL_BridgeMoveAdapter(&adapter, nullptr, &network);
}
