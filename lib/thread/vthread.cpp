#include "lib/thread/vthread.h"

#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "lib/config/msg.h"
#include "lib/err/errText.h"
#include "lib/fatal/panic.h"
#include "lib/log/log.h"
#include "lib/thread/vthreadTable.h"

VThreadHook vthreadThreadHook = nullptr;

namespace {

struct VThreadState {
    pthread_once_t keyOnce = PTHREAD_ONCE_INIT;
    pthread_key_t key = 0;  // holds the thread's id plus one; 0 is a thread without a slot
    int baseNice = 0;       // the process's nice value at VThread_Init
    bool initialized = false;
    std::atomic<bool> noGettid = false;
};

VThreadState state;

// What a new thread copies from its creator's stack. A semaphore keeps the creator until then: a mutex may
// not be unlocked by another thread than the one that locked it.
struct StartParameters {
    void (*function)(void *);
    void *argument;
    VThreadID id;
    itimerval profilingTimer;
    sigset_t signalMask;
};
struct ParameterBlock {
    StartParameters parameters;
    sem_t copied;
};

void MakeKey() {
    if (pthread_key_create(&state.key, nullptr) != 0) {
        PanicNotReached();
    }
}

// The calling thread's id, or -1 for one without a slot.
VThreadID KnownID() {
    pthread_once(&state.keyOnce, MakeKey);
    return static_cast<VThreadID>(reinterpret_cast<intptr_t>(pthread_getspecific(state.key))) - 1;
}

pid_t KernelThread() {
    if (!state.noGettid.load()) {
        const long thread = syscall(SYS_gettid);
        if (thread >= 0 || errno != ENOSYS) {
            return static_cast<pid_t>(thread);
        }
        state.noGettid.store(true);
    }
    return getpid();
}

// Binds the calling thread to its slot.
void Bind(VThreadID id) {
    pthread_once(&state.keyOnce, MakeKey);
    if (pthread_setspecific(state.key, reinterpret_cast<void *>(static_cast<intptr_t>(id) + 1)) != 0) {
        PanicNotReached();
    }
    VThreadInfo *info = VThreadTable_Get(id);
    info->kernelThread = KernelThread();
    info->handle = pthread_self();
}

// A thread that was not created here. It cannot be turned away.
void Adopt() {
    const VThreadID id = VThreadTable_ReserveDynamic();
    if (id == VTHREAD_INVALID_ID) {
        PanicNoMemory();
    }
    VThreadInfo *info = VThreadTable_Get(id);
    info->autoRelease = true;
    info->adopted = true;
    VThreadTable_SetName(id, nullptr);
    Bind(id);
    Warning("XXX initialized unknown thread %d %s\n", id, info->name);
}

// 0 or an errno value. Made as plain system calls: the C library's setresuid changes the user id of every
// thread, which costs a signal to each and raises those that need no privilege.
int SetNice(pid_t thread, int nice) {
    const bool privileged = geteuid() == 0;
    const bool raised = !privileged && syscall(SYS_setresuid, -1, 0, -1) == 0;
    const int error = setpriority(PRIO_PROCESS, static_cast<id_t>(thread), nice) == 0 ? 0 : errno;
    if (raised) {
        syscall(SYS_setresuid, -1, getuid(), -1);
    }
    return error;
}

// `priority` is an offset to the process's nice value. 0 or an errno value.
int SetPriority(VThreadInfo *info, int priority) {
    if (info->kernelThread == 0) {
        Log("VTHREAD setting priority of destroyed thread\n");
        return ESRCH;
    }
    info->priority = priority;
    const int error = SetNice(info->kernelThread, state.baseNice + priority);
    if (error != 0) {
        Log("VTHREAD setpriority failed: %s\n", Err_ErrnoText(error));
    }
    return error;
}

void *ThreadMain(void *data) {
    ParameterBlock *block = static_cast<ParameterBlock *>(data);
    const StartParameters parameters = block->parameters;
    Bind(parameters.id);
    SetPriority(VThreadTable_Get(parameters.id), 0);
    pthread_sigmask(SIG_SETMASK, &parameters.signalMask, nullptr);
    setitimer(ITIMER_PROF, &parameters.profilingTimer, nullptr);
    if (vthreadThreadHook != nullptr) {
        vthreadThreadHook(parameters.id, 1);
    }
    sem_post(&block->copied);
    parameters.function(parameters.argument);
    VThread_ExitThread(true);
}

// Starts a joinable thread with all signals blocked until it has its creator's mask. 0 or an errno value.
int StartBlocked(ParameterBlock *block) {
    pthread_attr_t attributes;
    int error = pthread_attr_init(&attributes);
    if (error != 0) {
        return error;
    }
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_JOINABLE);
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &block->parameters.signalMask);
    pthread_t handle;
    error = pthread_create(&handle, &attributes, ThreadMain, block);
    pthread_sigmask(SIG_SETMASK, &block->parameters.signalMask, nullptr);
    pthread_attr_destroy(&attributes);
    return error;
}

// 0 once the new thread has all that it needs, else an errno value.
int Start(void (*function)(void *), void *argument, VThreadID id) {
    ParameterBlock block = {{function, argument, id, {}, {}}, {}};
    getitimer(ITIMER_PROF, &block.parameters.profilingTimer);
    sem_init(&block.copied, 0, 0);
    const int error = StartBlocked(&block);
    while (error == 0 && sem_wait(&block.copied) != 0 && errno == EINTR) {
    }
    sem_destroy(&block.copied);
    return error;
}

void ReportFailure(int error) {
    Msg_AppendFormatted(MSGID("msg.vthreadPosix.createThreadFailed") "Cannot start thread: %s\n",
                        Err_ErrnoText(error));
}

}  // namespace

void VThread_Init(VThreadID id, const char *name) {
    if (state.initialized) {
        return;
    }
    state.initialized = true;
    VThreadTable_ForgetParents();
    pthread_once(&state.keyOnce, MakeKey);
    errno = 0;
    state.baseNice = getpriority(PRIO_PROCESS, 0);
    if (errno != 0) {
        PanicNotReached();
    }
    const VThreadID own = id == VTHREAD_INVALID_ID ? VTHREAD_MAIN_ID : id;
    if (!VThreadTable_Reserve(own)) {
        PanicNotReached();
    }
    VThreadTable_SetName(own, name);
    VThreadTable_Get(own)->main = true;
    Bind(own);
}

VThreadID VThread_CreateThread(void (*function)(void *), void *argument, VThreadID id, const char *name) {
    const bool dynamic = id == VTHREAD_INVALID_ID;
    if (dynamic) {
        id = VThreadTable_ReserveDynamic();
        if (id == VTHREAD_INVALID_ID) {
            ReportFailure(ENOMEM);
            return VTHREAD_INVALID_ID;
        }
    } else if (!VThreadTable_Reserve(id)) {
        PanicNotReached();
    }
    VThreadInfo *info = VThreadTable_Get(id);
    info->autoRelease = dynamic;
    VThreadTable_SetName(id, name);
    info->priority = 0;
    info->parent = VThread_CurID();
    const int error = Start(function, argument, id);
    if (error == 0) {
        return id;
    }
    ReportFailure(error);
    memset(info->name, 0, sizeof info->name);
    VThreadTable_Release(id);
    return VTHREAD_INVALID_ID;
}

void VThread_WaitThread(VThreadID id) {
    const VThreadInfo *info = VThreadTable_Get(id);
    if (info != nullptr && !info->adopted && !info->main) {
        pthread_join(info->handle, nullptr);
    }
}

VThreadID VThread_CurID() {
    if (KnownID() == VTHREAD_INVALID_ID) {
        Adopt();
    }
    return KnownID();
}

const char *VThread_CurName() {
    const VThreadID id = KnownID();
    return id != VTHREAD_INVALID_ID ? VThreadTable_Get(id)->name : "unknown";
}

void VThread_ExitThread(bool clean) {
    const VThreadID id = VThread_CurID();
    VThreadInfo *info = VThreadTable_Get(id);
    info->exitCount++;
    if (info->exitCount == 1) {
        if (info->exitHook != nullptr) {
            info->exitHook(id);
        }
        if (clean) {
            info->watched = false;
        }
    }
    if (info->exitCount < 3) {
        info->exiting = true;
    }
    if (info->exitWithProcess) {
        _exit(1);
    }
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
    if (vthreadThreadHook != nullptr) {
        vthreadThreadHook(id, 0);
    }
    pthread_exit(reinterpret_cast<void *>(clean ? intptr_t{0} : intptr_t{1}));
}
