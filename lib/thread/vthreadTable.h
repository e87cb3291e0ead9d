// The slots of threads: a fixed table, and beyond it blocks that are made when they are needed and live to
// the end of the process. A slot's state changes by compare-and-swap only; its other fields belong to its own
// thread, or to the creator before that thread runs.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "lib/thread/vthread.h"

constexpr VThreadID VTHREAD_FIRST_DYNAMIC_ID = 36;  // those below are named by callers
constexpr int VTHREAD_TABLE_SIZE = 96;
constexpr size_t VTHREAD_NAME_SIZE = 32;

enum VThreadSlotState : int32_t {
    VTHREAD_SLOT_FREE = 0,
    VTHREAD_SLOT_RESERVED = 1,
    VTHREAD_SLOT_RELEASING = 2,
};

struct VThreadInfo {
    std::atomic<int32_t> state;
    char name[VTHREAD_NAME_SIZE];
    bool watched;  // an exit of this thread is to be reported
    bool adopted;  // not created here, so never joined here
    bool main;
    bool autoRelease;  // the slot is one of the dynamic range and goes back there
    VThreadID parent;
    uint32_t exitCount;  // how often the exit path was entered
    void (*exitHook)(VThreadID id);
    bool exiting;
    int32_t priorityDemands[3];
    int32_t priority;    // nice offset set last
    pid_t kernelThread;  // 0 before the thread runs and once it is destroyed
    pthread_t handle;
    bool exitWithProcess;  // the thread's exit ends the whole process
};

// Null for an id without a slot.
VThreadInfo *VThreadTable_Get(VThreadID id);
void VThreadTable_ForgetParents();

// Takes this very slot. False when it is taken or does not exist.
bool VThreadTable_Reserve(VThreadID id);
// Takes the first free slot of the dynamic range; -1 without the memory for further ones.
VThreadID VThreadTable_ReserveDynamic();
// Gives back a slot whose thread never ran.
void VThreadTable_Release(VThreadID id);

// Cuts the name to its 31 characters; null gives "vthread-<id>".
void VThreadTable_SetName(VThreadID id, const char *name);
