#include "lib/harbrel/bridging/bridging.h"

#include <strings.h>

#include <atomic>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/hostAdapterChain.h"
#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/hostadapters/discovery.h"

namespace {

constexpr char GET_VNET_BRIDGE[] = "HBLGetVnetBridge";

// The copy of the stored value. It outlives an unload of the library.
struct DefaultBridge {
    std::atomic<int32_t> vnet = HBL_DEFAULT_BRIDGE_UNREAD;
};

DefaultBridge defaultBridge;

bool IsOnList(const HBL_HostAdapter *list, const char *deviceName) {
    for (const HBL_HostAdapter *adapter = list; adapter != nullptr; adapter = adapter->next) {
        if (strncasecmp(adapter->deviceName, deviceName, NETCFG_MAX_ADAPTER_NAME) == 0) {
            return true;
        }
    }
    return false;
}

// Sets *wanted when the host's adapter belongs on the list of the vnet and is not on it yet. False when the
// rule could not be read.
bool BelongsOnList(const HBL_HostAdapter &adapter, int32_t vnet, const HBL_HostAdapter *list, bool *wanted) {
    *wanted = false;
    if (HBLIsOwnAdapterName(adapter.deviceName)) {
        HBLLog(LOG_INFO2, GET_VNET_BRIDGE, "Skipping zelan virtual adapter: %s", adapter.deviceName);
        return true;
    }
    int32_t effective = HBL_VNET_NONE;
    if (!HBLGetHostAdapterBridge(adapter.deviceName, &effective)) {
        HBLLog(LOG_ERR, GET_VNET_BRIDGE, "Failed to get the bridge mapping for host adapter: %s",
               adapter.deviceName);
        return false;
    }
    if (effective != vnet) {
        HBLLog(LOG_INFO2, GET_VNET_BRIDGE, "Removing adapter: %s not bridged to DefaultBridge",
               adapter.deviceName);
        return true;
    }
    if (IsOnList(list, adapter.deviceName)) {
        HBLLog(LOG_INFO2, GET_VNET_BRIDGE, "Removing duplicate adapter: %s", adapter.deviceName);
        return true;
    }
    *wanted = true;
    return true;
}

// Moves the host's adapters that the vnet takes by default to the front of its mapped ones.
bool AddHostAdapters(int32_t vnet, HostAdapterChain *mapped) {
    HostAdapterChain host;
    if (!HBLCreateHostAdapList(&host.count, &host.head)) {
        HBLLog(LOG_ERR, GET_VNET_BRIDGE, "Error creating list of adapters on host");
        return false;
    }
    HBLLog(LOG_INFO2, GET_VNET_BRIDGE, "Obtained list of %u host adapters from the system", host.count);
    HostAdapterChain dropped;
    while (host.head != nullptr) {
        HBL_HostAdapter *const adapter = host.head;
        HBLLog(LOG_INFO2, GET_VNET_BRIDGE, "Iterating adapter: %s", adapter->deviceName);
        bool wanted;
        if (!BelongsOnList(*adapter, vnet, mapped->head, &wanted)) {
            return false;
        }
        HostAdapterChain *const target = wanted ? mapped : &dropped;
        host.head = adapter->next;
        adapter->next = target->head;
        target->head = adapter;
        target->count++;
    }
    return true;
}

}  // namespace

bool HBLGetDefaultBridgeVnet(int32_t *vnet) {
    if (defaultBridge.vnet == HBL_DEFAULT_BRIDGE_UNREAD) {
        int32_t stored = 0;
        if (HBLNetCfgGetAnswerInt32(nullptr, HBL_DEFAULT_BRIDGE_KEY, &stored) && stored != 0 &&
            stored != HBL_VNET_NONE) {
            HBLLog(LOG_ERR, __func__, "Invalid value of defaultBridge in config");
            return false;
        }
        int32_t unread = HBL_DEFAULT_BRIDGE_UNREAD;
        defaultBridge.vnet.compare_exchange_strong(unread, stored);  // a value set meanwhile stays
    }
    if (vnet != nullptr) {
        *vnet = defaultBridge.vnet;
    }
    return true;
}

bool HBLSetDefaultBridgeVnet(int32_t vnet) {
    if (!HBLNetCfgAddAnswerInt32(nullptr, HBL_DEFAULT_BRIDGE_KEY, vnet)) {
        HBLLog(LOG_ERR, __func__, "Error setting value of DefaultBridge in config");
        return false;
    }
    defaultBridge.vnet = vnet;
    return true;
}

bool HBLGetHostAdapterBridge(const char *adapter, int32_t *vnet) {
    return HBLNetCfgLookupVnetForHostAdapter(nullptr, adapter, vnet) || HBLGetDefaultBridgeVnet(vnet);
}

bool HBLSetBridgeMapping(const char *adapter, int32_t vnet) {
    return HBLNetCfgAddHostAdapterMapping(nullptr, adapter, vnet, false);
}

bool HBLSetBridgeMappingForMultipleAdapters(int32_t vnet, const HBL_HostAdapter *list) {
    bool allSet = true;
    for (const HBL_HostAdapter *adapter = list; adapter != nullptr; adapter = adapter->next) {
        HBLLog(LOG_INFO2, __func__, "Iterating adapter: %s", adapter->deviceName);
        if (!HBLSetBridgeMapping(adapter->deviceName, vnet)) {
            HBLLog(LOG_ERR, __func__, "Failed to set bridge mapping, vnet: %d, host adapter: %s", vnet,
                   adapter->deviceName);
            allSet = false;
        }
    }
    return allSet;
}

bool HBLGetVnetBridge(int32_t vnet, uint32_t *count, HBL_HostAdapter **list) {
    HostAdapterChain mapped;
    if (!HBLNetCfgLookupHostAdaptersForVnet(nullptr, vnet, &mapped.count, &mapped.head, false)) {
        HBLLog(LOG_ERR, __func__, "Cannot get list of bridge mappings for vnet: %d", vnet);
        return false;
    }
    HBLLog(LOG_INFO2, __func__, "Obtained list of %u adapters with bridge mapping configured for vnet: %d",
           mapped.count, vnet);
    int32_t defaultVnet;
    if (!HBLGetDefaultBridgeVnet(&defaultVnet)) {
        HBLLog(LOG_ERR, __func__, "Failed to get the value of default bridge");
        return false;
    }
    if (vnet == defaultVnet && !AddHostAdapters(vnet, &mapped)) {
        return false;
    }
    if (count != nullptr) {
        *count = mapped.count;
    }
    *list = mapped.head;
    mapped.head = nullptr;
    return true;
}
