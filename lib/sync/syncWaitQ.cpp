#include "lib/sync/syncWaitQ.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

#include "lib/fatal/memory.h"
#include "lib/fatal/panic.h"
#include "lib/file/posix.h"
#include "lib/log/log.h"
#include "lib/misc/atomicFence.h"
#include "lib/misc/owners.h"
#include "lib/string/str.h"

namespace {

constexpr char WAKE_BYTE[] = "X";
constexpr SyncPipe NO_PIPE = {-1, -1};

// A lock that cannot be waited for cannot be had, and what it guards must not be touched.
void StopIfExhausted(int error) {
    if (error == ENFILE) {
        Panic("SyncWaitQ: The system limit on the total number of open files has been reached.\n");
    }
    if (error == EMFILE) {
        Panic("SyncWaitQ: Too many file descriptors are in use by the process.\n");
    }
}

bool MakePipe(SyncPipe *made) {
    int ends[2];
    if (pipe2(ends, O_NONBLOCK | O_CLOEXEC) != 0) {
        StopIfExhausted(errno);
        return false;
    }
    *made = {ends[0], ends[1]};
    return true;
}

// A descriptor that is readable already, for a waiter whom a wake-up has raced past.
int ReadyDescriptor() {
    SyncPipe ready = NO_PIPE;
    if (!MakePipe(&ready)) {
        return -1;
    }
    FileDescriptor readEnd(ready.readEnd);
    const FileDescriptor writeEnd(ready.writeEnd);
    return write(writeEnd.get(), WAKE_BYTE, 1) == 1 ? readEnd.release() : -1;
}

MallocString FifoPath(const SyncWaitQ &queue, uint64_t sequence) {
    return MallocString(Str_SafeAsprintf(nullptr, "%s.%lx", queue.pathPrefix, sequence));
}

// Gives back the number that the wake-up has ended. Every wake-up must move the number on, also when another
// one has just done so, or a waiter could miss that the pipe it read has been closed.
uint64_t AdvanceSequence(SyncWaitQ *queue) {
    uint64_t old = queue->sequence.load();
    while (!AtomicFence_CompareExchange(queue->sequence, &old, old + 1)) {
    }
    return old;
}

// A wake-up may clear the flag after the waiter has set it and before the waiter has its descriptor, which
// the wake-up then does not reach. Setting the flag again keeps the next one from passing by.
bool WakeUpRacedPast(SyncWaitQ *queue, uint64_t sequence) {
    queue->waiters.store(true);
    return queue->sequence.load() != sequence;
}

int AddAnonymous(SyncWaitQ *queue, uint64_t sequence) {
    // The read end may be closed, and its number even reused, before it is copied; the sequence tells.
    FileDescriptor copy(fcntl(queue->pipe.load().readEnd, F_DUPFD_CLOEXEC, 0));
    const int error = errno;
    if (WakeUpRacedPast(queue, sequence)) {
        copy.reset();
        return ReadyDescriptor();
    }
    if (!copy) {
        StopIfExhausted(error);
    }
    return copy.release();
}

// Writes the byte without the SIGPIPE that comes when the last reader has just gone.
ssize_t WriteWakeByte(int fd) {
    sigset_t brokenPipe;
    sigset_t pending;
    sigset_t old;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    sigpending(&pending);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, &old);
    const ssize_t written = write(fd, WAKE_BYTE, 1);
    const int error = errno;
    if (written < 0 && error == EPIPE && sigismember(&pending, SIGPIPE) == 0) {
        const timespec now = {0, 0};
        while (sigtimedwait(&brokenPipe, nullptr, &now) < 0 && errno == EINTR) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    errno = error;
    return written;
}

// An empty descriptor and errno on failure. EINVAL: something else stands there, which would be readable at
// once and for ever, and is not to be written to.
FileDescriptor OpenFifo(const char *path, int access) {
    FileDescriptor fifo(Posix_Open(path, access | O_NONBLOCK | O_CLOEXEC));
    struct stat status;
    if (fifo && fstat(fifo.get(), &status) == 0 && !S_ISFIFO(status.st_mode)) {
        fifo.reset();
        errno = EINVAL;
    }
    return fifo;
}

// Wakes all who have the FIFO open, and removes it.
bool WakeFifo(const char *path) {
    const FileDescriptor fifo = OpenFifo(path, O_WRONLY);
    const int error = errno;
    // Without a reader the FIFO is a left-over of one who waits no more.
    if (fifo || error == ENXIO) {
        Posix_Unlink(path);
    }
    if (!fifo) {
        if (error == ENXIO || error == ENOENT) {
            return true;
        }
        StopIfExhausted(error);
        Warning("SyncWaitQWakeUpNamed: open failed, errno = %d\n", error);
        return false;
    }
    const ssize_t written = WriteWakeByte(fifo.get());
    if (written != 1 && errno != EPIPE) {
        Warning("SyncWaitQWakeUpNamed: write failed, ret = %d, errno = %d\n", static_cast<int>(written),
                errno);
        return false;
    }
    return true;
}

int AddNamed(SyncWaitQ *queue, uint64_t sequence) {
    const MallocString path = FifoPath(*queue, sequence);
    FileDescriptor fifo;
    if (Posix_Mkfifo(path.get(), S_IRUSR | S_IWUSR) == 0 || errno == EEXIST) {
        fifo = OpenFifo(path.get(), O_RDONLY);
    }
    const int error = errno;
    if (WakeUpRacedPast(queue, sequence)) {
        // Others may wait at this FIFO whom the wake-up has not reached yet, and would not find without it.
        fifo.reset();
        WakeFifo(path.get());
        return ReadyDescriptor();
    }
    if (!fifo) {
        StopIfExhausted(error);
    }
    return fifo.release();
}

bool WakeUpAnonymous(SyncWaitQ *queue) {
    SyncPipe fresh = NO_PIPE;
    if (!MakePipe(&fresh)) {
        Warning("SyncWaitQWakeupAnon: fcntl failed, errno = %d\n", errno);
        return false;
    }
    const SyncPipe old = AtomicFence_Exchange(queue->pipe, fresh);
    AdvanceSequence(queue);
    const FileDescriptor readEnd(old.readEnd);
    const FileDescriptor writeEnd(old.writeEnd);
    const ssize_t written = write(writeEnd.get(), WAKE_BYTE, 1);
    if (written != 1) {
        Warning("SyncWaitQWakeupAnon: write failed, ret = %d, errno = %d\n", static_cast<int>(written),
                errno);
    }
    return written == 1;
}

bool WakeUpNamed(SyncWaitQ *queue) {
    return WakeFifo(FifoPath(*queue, AdvanceSequence(queue)).get());
}

}  // namespace

bool SyncWaitQ_Init(SyncWaitQ *queue, const char *pathPrefix) {
    SyncPipe pipe = NO_PIPE;
    queue->initialized = false;
    if (pathPrefix == nullptr && !MakePipe(&pipe)) {
        return false;
    }
    queue->sequence.store(0);
    queue->waiters.store(false);
    queue->pathPrefix = Mem_Strdup(pathPrefix);
    queue->pipe.store(pipe);
    queue->initialized = true;
    return true;
}

void SyncWaitQ_Destroy(SyncWaitQ *queue) {
    if (!queue->initialized) {
        return;
    }
    const SyncPipe pipe = queue->pipe.load();  // nobody else is at the queue any more
    const FileDescriptor readEnd(pipe.readEnd);
    const FileDescriptor writeEnd(pipe.writeEnd);
    if (queue->pathPrefix != nullptr) {
        Posix_Unlink(FifoPath(*queue, queue->sequence.load()).get());
    }
    free(queue->pathPrefix);
    queue->pathPrefix = nullptr;
    queue->initialized = false;
}

int SyncWaitQ_Add(SyncWaitQ *queue) {
    queue->waiters.store(true);
    const uint64_t sequence = queue->sequence.load();
    return queue->pathPrefix != nullptr ? AddNamed(queue, sequence) : AddAnonymous(queue, sequence);
}

bool SyncWaitQ_WakeUp(SyncWaitQ *queue) {
    if (!queue->waiters.load()) {
        return true;
    }
    queue->waiters.store(false);
    const bool woken = queue->pathPrefix != nullptr ? WakeUpNamed(queue) : WakeUpAnonymous(queue);
    if (!woken) {
        queue->waiters.store(true);  // they are waiting still
    }
    return woken;
}
