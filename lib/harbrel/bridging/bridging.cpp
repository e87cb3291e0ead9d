#include "lib/harbrel/bridging/bridging.h"

#include <strings.h>

#include <utility>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/hostadapters/discovery.h"
#include "lib/misc/owners.h"

namespace {

bool IsOnList(const HostAdapterChain &list, const char *deviceName) {
    for (const HBL_HostAdapter *adapter = list.First(); adapter != nullptr; adapter = adapter->next) {
        if (strncasecmp(adapter->deviceName, deviceName, NETCFG_MAX_ADAPTER_NAME) == 0) {
            return true;
        }
    }
    return false;
}

enum class Verdict { Wanted, NotWanted, Unknown };

// Whether the host's adapter belongs on the list of the vnet and is not on it yet.
Verdict JudgeAdapter(FunctionLog log, const HBL_HostAdapter &adapter, int32_t vnet,
                     const HostAdapterChain &list) {
    if (HBLIsOwnAdapterName(adapter.deviceName)) {
        log(LOG_INFO2, "Skipping zelan virtual adapter: %s", adapter.deviceName);
        return Verdict::NotWanted;
    }
    int32_t effective = HBL_VNET_NONE;
    if (!HBLGetHostAdapterBridge(adapter.deviceName, &effective)) {
        log(LOG_ERR, "Failed to get the bridge mapping for host adapter: %s", adapter.deviceName);
        return Verdict::Unknown;
    }
    if (effective != vnet) {
        log(LOG_INFO2, "Removing adapter: %s not bridged to DefaultBridge", adapter.deviceName);
        return Verdict::NotWanted;
    }
    if (IsOnList(list, adapter.deviceName)) {
        log(LOG_INFO2, "Removing duplicate adapter: %s", adapter.deviceName);
        return Verdict::NotWanted;
    }
    return Verdict::Wanted;
}

// Puts the host's adapters that the vnet takes by default in front of its mapped ones.
bool AddHostAdapters(FunctionLog log, int32_t vnet, HostAdapterChain *mapped) {
    HostAdapterChain host;
    if (!HBLCreateHostAdapList(&host)) {
        log(LOG_ERR, "Error creating list of adapters on host");
        return false;
    }
    log(LOG_INFO2, "Obtained list of %u host adapters from the system", host.Count());
    while (MallocBlock<HBL_HostAdapter> adapter{host.TakeFirst()}) {
        log(LOG_INFO2, "Iterating adapter: %s", adapter->deviceName);
        const Verdict verdict = JudgeAdapter(log, *adapter, vnet, *mapped);
        if (verdict == Verdict::Unknown) {
            return false;
        }
        if (verdict == Verdict::Wanted) {
            mapped->PushFront(adapter.release());
        }
    }
    return true;
}

}  // namespace

std::atomic<int32_t> &HBLDefaultBridgeCopy() {
    static std::atomic<int32_t> copy = HBL_DEFAULT_BRIDGE_UNREAD;
    return copy;
}

bool HBLGetDefaultBridgeVnet(int32_t *vnet) {
    std::atomic<int32_t> &copy = HBLDefaultBridgeCopy();
    if (copy == HBL_DEFAULT_BRIDGE_UNREAD) {
        int32_t stored = 0;
        if (HBLNetCfgGetAnswerInt32(nullptr, HBL_DEFAULT_BRIDGE_KEY, &stored) && stored != 0 &&
            stored != HBL_VNET_NONE) {
            HBLLog(LOG_ERR, __func__, "Invalid value of defaultBridge in config");
            return false;
        }
        int32_t unread = HBL_DEFAULT_BRIDGE_UNREAD;
        copy.compare_exchange_strong(unread, stored);  // a value set meanwhile stays
    }
    if (vnet != nullptr) {
        *vnet = copy;
    }
    return true;
}

bool HBLSetDefaultBridgeVnet(int32_t vnet) {
    if (!HBLNetCfgAddAnswerInt32(nullptr, HBL_DEFAULT_BRIDGE_KEY, vnet)) {
        HBLLog(LOG_ERR, __func__, "Error setting value of DefaultBridge in config");
        return false;
    }
    HBLDefaultBridgeCopy() = vnet;
    return true;
}

bool HBLGetHostAdapterBridge(const char *adapter, int32_t *vnet) {
    return HBLNetCfgLookupVnetForHostAdapter(nullptr, adapter, vnet) || HBLGetDefaultBridgeVnet(vnet);
}

bool HBLSetBridgeMapping(const char *adapter, int32_t vnet) {
    return HBLNetCfgAddHostAdapterMapping(nullptr, adapter, vnet, false);
}

bool HBLSetBridgeMappingForMultipleAdapters(int32_t vnet, const HostAdapterChain &list) {
    bool allSet = true;
    for (const HBL_HostAdapter *adapter = list.First(); adapter != nullptr; adapter = adapter->next) {
        HBLLog(LOG_INFO2, __func__, "Iterating adapter: %s", adapter->deviceName);
        if (!HBLSetBridgeMapping(adapter->deviceName, vnet)) {
            HBLLog(LOG_ERR, __func__, "Failed to set bridge mapping, vnet: %d, host adapter: %s", vnet,
                   adapter->deviceName);
            allSet = false;
        }
    }
    return allSet;
}

bool HBLGetVnetBridge(int32_t vnet, HostAdapterChain *list) {
    const FunctionLog log(__func__);
    HostAdapterChain found;
    if (!HBLNetCfgLookupHostAdaptersForVnet(nullptr, vnet, &found, false)) {
        log(LOG_ERR, "Cannot get list of bridge mappings for vnet: %d", vnet);
        return false;
    }
    log(LOG_INFO2, "Obtained list of %u adapters with bridge mapping configured for vnet: %d", found.Count(),
        vnet);
    int32_t defaultVnet;
    if (!HBLGetDefaultBridgeVnet(&defaultVnet)) {
        log(LOG_ERR, "Failed to get the value of default bridge");
        return false;
    }
    if (vnet == defaultVnet && !AddHostAdapters(log, vnet, &found)) {
        return false;
    }
    *list = std::move(found);
    return true;
}
