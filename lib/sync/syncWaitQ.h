// A wait queue of pipes: a waiter polls a descriptor that a wake-up makes readable. An anonymous queue serves
// the threads of one process; a named one works through FIFOs whose names begin with its path prefix. Running
// out of descriptors stops the process.
#pragma once

#include <atomic>
#include <cstdint>

// Both ends of the pipe that waiters copy the read end of; exchanged as one word.
struct alignas(8) SyncPipe {
    int32_t readEnd;
    int32_t writeEnd;
};
static_assert(std::atomic<SyncPipe>::is_always_lock_free);

struct SyncWaitQ {
    bool initialized;
    std::atomic<uint64_t> sequence;  // counts the wake-ups
    std::atomic<bool> waiters;       // somebody may be waiting
    char *pathPrefix;                // owned; null for an anonymous queue
    std::atomic<SyncPipe> pipe;      // of an anonymous queue
};

// `pathPrefix` is copied; null makes an anonymous queue. A named one creates no file yet.
bool SyncWaitQ_Init(SyncWaitQ *queue, const char *pathPrefix);
// Nobody may be waiting.
void SyncWaitQ_Destroy(SyncWaitQ *queue);

// A descriptor that becomes readable at the next wake-up, for the caller to close; -1 on failure. Whoever
// waits for a condition looks at it again between this call and the poll.
int SyncWaitQ_Add(SyncWaitQ *queue);
// Wakes all who have been added. False when that failed; the reason has gone to Warning.
bool SyncWaitQ_WakeUp(SyncWaitQ *queue);
