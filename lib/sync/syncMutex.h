// Mutexes on a wait queue of pipes. Taking and releasing one that nobody waits for takes no system call.
#pragma once

#include <atomic>
#include <cstdint>

#include "lib/sync/syncWaitQ.h"
#include "lib/thread/vthread.h"

struct SyncMutex {
    SyncWaitQ queue;
    std::atomic<uint32_t> unlocked;  // 1 when free
};

// `pathPrefix` as for SyncWaitQ_Init.
bool SyncMutex_Init(SyncMutex *mutex, const char *pathPrefix);
void SyncMutex_Destroy(SyncMutex *mutex);
// False only when the wait itself failed.
bool SyncMutex_Lock(SyncMutex *mutex);
bool SyncMutex_Trylock(SyncMutex *mutex);
// Free afterwards in any case; false when a wake-up failed.
bool SyncMutex_Unlock(SyncMutex *mutex);
// The one mutex at *storage: made by whoever comes first; a loser destroys its own.
SyncMutex *SyncMutex_CreateSingleton(std::atomic<SyncMutex *> *storage);

// The recursive form: its owner may take it again, and releases it as often.
struct SyncRecMutex {
    SyncMutex mutex;
    std::atomic<VThreadID> owner;  // VTHREAD_INVALID_ID when none
    uint32_t count;
};

bool SyncRecMutex_Init(SyncRecMutex *mutex, const char *pathPrefix);
void SyncRecMutex_Destroy(SyncRecMutex *mutex);
bool SyncRecMutex_Lock(SyncRecMutex *mutex);
bool SyncRecMutex_Trylock(SyncRecMutex *mutex);
// For the owner only.
bool SyncRecMutex_Unlock(SyncRecMutex *mutex);
