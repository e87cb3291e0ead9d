#include "lib/harbrel/cache/cacheGuard.h"

#include <pthread.h>

#include "lib/fatal/panic.h"

namespace {

// Not std::shared_mutex, behind which readers that follow each other closely keep a change out for ever.
pthread_rwlock_t guard = PTHREAD_RWLOCK_WRITER_NONRECURSIVE_INITIALIZER_NP;

// This thread's holds; with `changing` the guard is held alone, by reads within the change too.
thread_local unsigned holds = 0;
thread_local bool changing = false;

void Release() {
    if (--holds == 0) {
        changing = false;
        pthread_rwlock_unlock(&guard);
    }
}

}  // namespace

CacheReading::CacheReading() {
    if (holds++ == 0) {
        pthread_rwlock_rdlock(&guard);
    }
}

CacheReading::~CacheReading() {
    Release();
}

CacheChanging::CacheChanging() {
    if (holds != 0 && !changing) {
        PanicInconsistent();
    }
    if (holds++ == 0) {
        pthread_rwlock_wrlock(&guard);
        changing = true;
    }
}

CacheChanging::~CacheChanging() {
    Release();
}
