// The exported views of host adapters and of the default bridge.
#include <cstdlib>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/hostAdapterChain.h"
#include "lib/harbrel/bridging/bridging.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/harbrel.h"
#include "lib/harbrel/hostadapters/discovery.h"
#include "lib/misc/owners.h"

namespace {

constexpr uint32_t LIST_VERSION = 1;
using AdapterListBlock = MallocBlock<HBL_HostAdapterList>;

// The header and all record places of the list in one zeroed block.
AdapterListBlock AllocateList(const char *function, uint32_t places) {
    AdapterListBlock list(static_cast<HBL_HostAdapterList *>(
        calloc(1, sizeof(HBL_HostAdapterList) + places * sizeof(HBL_HostAdapter))));
    if (list == nullptr) {
        HBLLog(LOG_ERR, function, "Error in allocating memory for HBL_HostAdapterList");
        return nullptr;
    }
    list->version = LIST_VERSION;
    list->first = places != 0 ? reinterpret_cast<HBL_HostAdapter *>(list.get() + 1) : nullptr;
    return list;
}

// Copies the adapter to the next place of the list, unless it is one of the system's own.
bool CopyAdapter(const char *function, const HBL_HostAdapter &adapter, HBL_HostAdapterList *list) {
    HBLLog(LOG_INFO2, function, "Iterating adapter: %s", adapter.deviceName);
    if (HBLIsOwnAdapterName(adapter.deviceName)) {
        HBLLog(LOG_INFO2, function, "Skipping zelan virtual adapter: %s", adapter.deviceName);
        return true;
    }
    HBL_HostAdapter *const place = list->first + list->count;
    *place = adapter;
    place->next = nullptr;
    place->net.version = 1;
    place->net.type = HBL_NETWORK_TYPE_VNET;
    int32_t vnet;
    if (!HBLGetHostAdapterBridge(place->deviceName, &vnet)) {
        HBLLog(LOG_ERR, function, "Failed to get the bridge mapping for host adapter: %s, aborting",
               place->deviceName);
        return false;
    }
    place->net.vnet = vnet;
    HBLLog(LOG_INFO2, function, "vnet: %d is bridged to host adapter: %s", vnet, place->deviceName);
    if (list->count != 0) {
        list->first[list->count - 1].next = place;
    }
    list->count++;
    return true;
}

// The exported form of the chain, or null.
AdapterListBlock MakeContiguous(const char *function, const HostAdapterChain &chain) {
    AdapterListBlock list = AllocateList(function, chain.count);
    if (list == nullptr) {
        return nullptr;
    }
    uint32_t walked = 0;
    for (const HBL_HostAdapter *adapter = chain.head; adapter != nullptr; adapter = adapter->next, walked++) {
        if (walked < chain.count && !CopyAdapter(function, *adapter, list.get())) {
            return nullptr;
        }
    }
    if (walked != chain.count) {
        HBLLog(LOG_ERR, function, "Something wrong with the list operations or count");
        return nullptr;
    }
    return list;
}

}  // namespace

bool HBL_GetHostAdapterList(uint32_t version, HBL_HostAdapterList **header) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    HBLLog(LOG_ARGS, __func__, "Arguments - v: %u, h: %p", version, static_cast<void *>(header));
    if (header == nullptr) {
        HBLLog(LOG_ERR, __func__, "Invalid argument - header: %p", static_cast<void *>(header));
        return false;
    }
    if (version != LIST_VERSION) {
        HBLLog(LOG_ERR, __func__, "Unsupported version number: %u", version);
        return false;
    }
    HostAdapterChain chain;
    if (!HBLCreateHostAdapList(&chain.count, &chain.head)) {
        HBLLog(LOG_ERR, __func__, "Error creating list of adapters on host");
        return false;
    }
    HBLLog(LOG_INFO2, __func__, "Obtained non-contig list of %u adapters", chain.count);
    AdapterListBlock list = MakeContiguous(__func__, chain);
    const bool made = list != nullptr;
    if (made) {
        HBLLog(LOG_OK, __func__, "Returning list of %u host adapters", list->count);
        *header = list.release();
    }
    HBLLog(LOG_INFO2, __func__, "Freeing non-contig list of adapters");
    return made;
}

void HBL_FreeHostAdapterList(HBL_HostAdapterList *header) {
    const ApiFrame frame(__func__, ApiFrame::Kind::Always);
    free(header);
}

bool HBL_GetBridgeDefaultNetwork(HBL_NetworkID *netId) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    HBLLog(LOG_ARGS, __func__, "Arguments - n: %p", static_cast<void *>(netId));
    if (netId == nullptr) {
        HBLLog(LOG_ERR, __func__, "Invalid argument - netId: %p", static_cast<void *>(netId));
        return false;
    }
    if (netId->version != 1) {
        HBLLog(LOG_ERR, __func__, "Unsupported version number: %u", netId->version);
        return false;
    }
    int32_t vnet;
    if (!HBLGetDefaultBridgeVnet(&vnet)) {
        HBLLog(LOG_ERR, __func__, "Failed to get value of default bridge");
        return false;
    }
    netId->type = HBL_NETWORK_TYPE_VNET;
    netId->vnet = vnet;
    return true;
}
