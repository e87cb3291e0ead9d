#include "lib/sync/syncMutex.h"

#include <poll.h>

#include <cerrno>
#include <memory>

#include "lib/fatal/panic.h"
#include "lib/misc/atomicFence.h"
#include "lib/misc/owners.h"

namespace {

// The time-out only makes the waiter look again.
constexpr int WAIT_MILLISECONDS = 5000;

bool WaitReadable(int fd) {
    pollfd waited = {fd, POLLIN, 0};
    while (poll(&waited, 1, WAIT_MILLISECONDS) < 0) {
        if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

// Takes the mutex with `take`, or once more when the caller has it already.
bool TakeRecursive(SyncRecMutex *mutex, bool (*take)(SyncMutex *)) {
    const VThreadID self = VThread_CurID();
    if (mutex->owner.load() == self) {
        mutex->count++;
        return true;
    }
    if (!take(&mutex->mutex)) {
        return false;
    }
    mutex->owner.store(self);
    mutex->count = 1;
    return true;
}

}  // namespace

bool SyncMutex_Init(SyncMutex *mutex, const char *pathPrefix) {
    mutex->unlocked.store(1);
    return SyncWaitQ_Init(&mutex->queue, pathPrefix);
}

void SyncMutex_Destroy(SyncMutex *mutex) {
    SyncWaitQ_Destroy(&mutex->queue);
}

bool SyncMutex_Lock(SyncMutex *mutex) {
    if (SyncMutex_Trylock(mutex)) {
        return true;
    }
    for (;;) {
        const FileDescriptor wakeUp(SyncWaitQ_Add(&mutex->queue));
        if (!wakeUp) {
            return false;
        }
        // A release before the call above has woken nobody.
        if (SyncMutex_Trylock(mutex)) {
            return true;
        }
        if (!WaitReadable(wakeUp.get())) {
            return false;
        }
    }
}

bool SyncMutex_Trylock(SyncMutex *mutex) {
    uint32_t expected = 1;
    return AtomicFence_CompareExchange(mutex->unlocked, &expected, 0);
}

bool SyncMutex_Unlock(SyncMutex *mutex) {
    mutex->unlocked.store(1);
    return SyncWaitQ_WakeUp(&mutex->queue);
}

SyncMutex *SyncMutex_CreateSingleton(std::atomic<SyncMutex *> *storage) {
    SyncMutex *present = storage->load();
    if (present != nullptr) {
        return present;
    }
    auto fresh = std::make_unique<SyncMutex>();
    if (!SyncMutex_Init(fresh.get(), nullptr)) {
        PanicInconsistent();
    }
    if (!AtomicFence_CompareExchange(*storage, &present, fresh.get())) {
        SyncMutex_Destroy(fresh.get());
        return present;
    }
    return fresh.release();
}

bool SyncRecMutex_Init(SyncRecMutex *mutex, const char *pathPrefix) {
    mutex->owner.store(VTHREAD_INVALID_ID);
    mutex->count = 0;
    return SyncMutex_Init(&mutex->mutex, pathPrefix);
}

void SyncRecMutex_Destroy(SyncRecMutex *mutex) {
    SyncMutex_Destroy(&mutex->mutex);
}

bool SyncRecMutex_Lock(SyncRecMutex *mutex) {
    return TakeRecursive(mutex, SyncMutex_Lock);
}

bool SyncRecMutex_Trylock(SyncRecMutex *mutex) {
    return TakeRecursive(mutex, SyncMutex_Trylock);
}

bool SyncRecMutex_Unlock(SyncRecMutex *mutex) {
    if (--mutex->count > 0) {
        return true;
    }
    mutex->owner.store(VTHREAD_INVALID_ID);
    return SyncMutex_Unlock(&mutex->mutex);
}
