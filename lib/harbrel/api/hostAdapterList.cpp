// Exported: the host's adapters, each with the network that it is bridged to.
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
AdapterListBlock AllocateList(FunctionLog log, uint32_t places) {
    AdapterListBlock list(static_cast<HBL_HostAdapterList *>(
        calloc(1, sizeof(HBL_HostAdapterList) + places * sizeof(HBL_HostAdapter))));
    if (list == nullptr) {
        log(LOG_ERR, "Error in allocating memory for HBL_HostAdapterList");
        return nullptr;
    }
    list->version = LIST_VERSION;
    list->first = places != 0 ? reinterpret_cast<HBL_HostAdapter *>(list.get() + 1) : nullptr;
    return list;
}

// Copies the adapter to the next place of the list, unless it is one of the system's own.
bool CopyAdapter(FunctionLog log, const HBL_HostAdapter &adapter, HBL_HostAdapterList *list) {
    log(LOG_INFO2, "Iterating adapter: %s", adapter.deviceName);
    if (HBLIsOwnAdapterName(adapter.deviceName)) {
        log(LOG_INFO2, "Skipping zelan virtual adapter: %s", adapter.deviceName);
        return true;
    }
    HBL_HostAdapter *const place = list->first + list->count;
    *place = adapter;
    place->next = nullptr;
    place->net.version = 1;
    place->net.type = HBL_NETWORK_TYPE_VNET;
    int32_t vnet;
    if (!HBLGetHostAdapterBridge(place->deviceName, &vnet)) {
        log(LOG_ERR, "Failed to get the bridge mapping for host adapter: %s, aborting", place->deviceName);
        return false;
    }
    place->net.vnet = vnet;
    log(LOG_INFO2, "vnet: %d is bridged to host adapter: %s", vnet, place->deviceName);
    if (list->count != 0) {
        list->first[list->count - 1].next = place;
    }
    list->count++;
    return true;
}

// The exported form of the chain, or null.
AdapterListBlock MakeContiguous(FunctionLog log, const HostAdapterChain &chain) {
    AdapterListBlock list = AllocateList(log, chain.Count());
    if (list == nullptr) {
        return nullptr;
    }
    uint32_t walked = 0;
    for (const HBL_HostAdapter *adapter = chain.First(); adapter != nullptr;
         adapter = adapter->next, walked++) {
        if (!CopyAdapter(log, *adapter, list.get())) {
            return nullptr;
        }
    }
    if (walked != chain.Count()) {
        log(LOG_ERR, "Something wrong with the list operations or count");
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
    frame.log(LOG_ARGS, "Arguments - v: %u, h: %p", version, Address(header));
    if (header == nullptr) {
        frame.log(LOG_ERR, "Invalid argument - header: %p", Address(header));
        return false;
    }
    if (version != LIST_VERSION) {
        frame.log(LOG_ERR, "Unsupported version number: %u", version);
        return false;
    }
    HostAdapterChain chain;
    if (!HBLCreateHostAdapList(&chain)) {
        frame.log(LOG_ERR, "Error creating list of adapters on host");
        return false;
    }
    frame.log(LOG_INFO2, "Obtained non-contig list of %u adapters", chain.Count());
    AdapterListBlock list = MakeContiguous(frame.log, chain);
    const bool made = list != nullptr;
    if (made) {
        frame.log(LOG_OK, "Returning list of %u host adapters", list->count);
        *header = list.release();
    }
    frame.log(LOG_INFO2, "Freeing non-contig list of adapters");
    return made;
}

void HBL_FreeHostAdapterList(HBL_HostAdapterList *header) {
    const ApiFrame frame(__func__, ApiFrame::Kind::Always);
    free(header);
}
