#include "lib/harbrel/cache/cacheGuard.h"

#include <pthread.h>

#include <atomic>
#include <thread>

namespace {

// Not std::shared_mutex, behind which readers that follow each other closely keep a change out for ever.
pthread_rwlock_t guard = PTHREAD_RWLOCK_WRITER_NONRECURSIVE_INITIALIZER_NP;

// Who holds the guard alone; no thread's id while nobody does. Not a flag of each thread's own: what a
// library keeps for a thread outlives the library where a program lets go of it.
std::atomic<std::thread::id> changer;

bool IsChanging() {
    return changer.load(std::memory_order_relaxed) == std::this_thread::get_id();
}

}  // namespace

CacheReading::CacheReading() : isOutermost_(!IsChanging()) {
    if (isOutermost_) {
        pthread_rwlock_rdlock(&guard);
    }
}

CacheReading::~CacheReading() {
    if (isOutermost_) {
        pthread_rwlock_unlock(&guard);
    }
}

CacheChanging::CacheChanging() : isOutermost_(!IsChanging()) {
    if (isOutermost_) {
        pthread_rwlock_wrlock(&guard);
        changer.store(std::this_thread::get_id(), std::memory_order_relaxed);
    }
}

CacheChanging::~CacheChanging() {
    if (isOutermost_) {
        changer.store({}, std::memory_order_relaxed);
        pthread_rwlock_unlock(&guard);
    }
}
