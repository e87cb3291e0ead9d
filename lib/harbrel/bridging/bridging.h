// Which adapter goes to which vnet: its mapping, and without one the default bridge vnet.
// No lock of its own; exported functions that change anything hold the database lock around the writes.
#pragma once

#include <atomic>
#include <cstdint>

#include "lib/harbrel/base/hostAdapterChain.h"

constexpr int32_t HBL_DEFAULT_BRIDGE_UNREAD = -100;
constexpr const char *HBL_DEFAULT_BRIDGE_KEY = "HBL_DEFAULT_BRIDGE_VNET";

// The process's copy of the stored value, which outlives an unload of the library.
std::atomic<int32_t> &HBLDefaultBridgeCopy();
bool HBLGetDefaultBridgeVnet(int32_t *vnet);  // vnet may be null; false when the stored value is invalid
bool HBLSetDefaultBridgeVnet(int32_t vnet);
bool HBLGetHostAdapterBridge(const char *adapter, int32_t *vnet);  // the effective vnet
bool HBLSetBridgeMapping(const char *adapter, int32_t vnet);
bool HBLSetBridgeMappingForMultipleAdapters(int32_t vnet, const HostAdapterChain &list);
// The adapters effectively on the vnet. A failure leaves the list as it is.
bool HBLGetVnetBridge(int32_t vnet, HostAdapterChain *list);
