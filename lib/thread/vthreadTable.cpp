#include "lib/thread/vthreadTable.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#include "lib/misc/atomicFence.h"
#include "lib/string/str.h"

namespace {

struct VThreadBlock {
    VThreadInfo infos[VTHREAD_TABLE_SIZE];
    std::atomic<VThreadBlock *> next;
};

struct VThreadTable {
    VThreadInfo vthreadInfo[VTHREAD_TABLE_SIZE];
    std::atomic<VThreadBlock *> blocks;  // ids from VTHREAD_TABLE_SIZE up, block by block
    std::mutex growing;
};

VThreadTable table;

void ForgetParents(VThreadInfo (&infos)[VTHREAD_TABLE_SIZE]) {
    for (VThreadInfo &info : infos) {
        info.parent = VTHREAD_INVALID_ID;
    }
}

bool Take(VThreadInfo *info) {
    int32_t expected = VTHREAD_SLOT_FREE;
    return AtomicFence_CompareExchange(info->state, &expected, VTHREAD_SLOT_RESERVED);
}

int FirstFree(VThreadInfo (&infos)[VTHREAD_TABLE_SIZE], int from) {
    for (int i = from; i < VTHREAD_TABLE_SIZE; ++i) {
        if (Take(&infos[i])) {
            return i;
        }
    }
    return -1;
}

// The block behind `link`, made if there is none yet. Null without memory: a thread that cannot be created
// is no reason to stop, so the allocation is not one of the stopping kind.
VThreadBlock *BlockAt(std::atomic<VThreadBlock *> *link) {
    const std::lock_guard guard(table.growing);
    if (link->load() == nullptr) {
        void *memory = calloc(1, sizeof(VThreadBlock));
        if (memory == nullptr) {
            return nullptr;
        }
        VThreadBlock *fresh = new (memory) VThreadBlock();
        ForgetParents(fresh->infos);
        link->store(fresh);
    }
    return link->load();
}

}  // namespace

VThreadInfo *VThreadTable_Get(VThreadID id) {
    if (id < 0) {
        return nullptr;
    }
    if (id < VTHREAD_TABLE_SIZE) {
        return &table.vthreadInfo[id];
    }
    VThreadBlock *block = table.blocks.load();
    for (id -= VTHREAD_TABLE_SIZE; block != nullptr && id >= VTHREAD_TABLE_SIZE; id -= VTHREAD_TABLE_SIZE) {
        block = block->next.load();
    }
    return block != nullptr ? &block->infos[id] : nullptr;
}

void VThreadTable_ForgetParents() {
    ForgetParents(table.vthreadInfo);
}

bool VThreadTable_Reserve(VThreadID id) {
    VThreadInfo *info = VThreadTable_Get(id);
    return info != nullptr && Take(info);
}

VThreadID VThreadTable_ReserveDynamic() {
    int index = FirstFree(table.vthreadInfo, VTHREAD_FIRST_DYNAMIC_ID);
    VThreadID first = 0;
    for (std::atomic<VThreadBlock *> *link = &table.blocks; index < 0;) {
        VThreadBlock *block = BlockAt(link);
        if (block == nullptr) {
            return VTHREAD_INVALID_ID;
        }
        first += VTHREAD_TABLE_SIZE;
        index = FirstFree(block->infos, 0);
        link = &block->next;
    }
    return first + index;
}

void VThreadTable_Release(VThreadID id) {
    VThreadInfo *info = VThreadTable_Get(id);
    if (info == nullptr) {
        return;
    }
    info->state.store(VTHREAD_SLOT_RELEASING);
    info->autoRelease = false;
    info->parent = VTHREAD_INVALID_ID;
    info->state.store(VTHREAD_SLOT_FREE);
}

void VThreadTable_SetName(VThreadID id, const char *name) {
    char *field = VThreadTable_Get(id)->name;
    memset(field, 0, VTHREAD_NAME_SIZE);
    if (name == nullptr) {
        Str_Snprintf(field, VTHREAD_NAME_SIZE, "vthread-%d", id);
    } else {
        memcpy(field, name, strnlen(name, VTHREAD_NAME_SIZE - 1));
    }
}
