// Starting a daemon: argument vector, fork, exec, and the status report on a pipe.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vector>

#include "lib/err/errText.h"
#include "lib/harbrel/base/functionTrace.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/files/files.h"
#include "lib/harbrel/services/arguments.h"
#include "lib/harbrel/services/daemons.h"
#include "lib/harbrel/services/programs.h"
#include "lib/misc/owners.h"
#include "lib/unicode/unicode.h"

namespace {

constexpr int FIRST_FREE_FD = STDERR_FILENO + 1;
constexpr size_t CHILD_LINE_SIZE = 8192;

struct StatusPipe {
    FileDescriptor readEnd;
    FileDescriptor writeEnd;
};

// The child puts the log on descriptors 1 and 2, so no end of the pipe may have such a number, which it gets
// when the caller runs with standard descriptors closed.
bool MoveBehindStandardFds(FileDescriptor *fd) {
    if (fd->get() < FIRST_FREE_FD) {
        fd->reset(fcntl(fd->get(), F_DUPFD_CLOEXEC, FIRST_FREE_FD));
    }
    return static_cast<bool>(*fd);
}

// Both ends are closed by any exec of any thread; only the daemon's own child reopens the way for its end.
bool OpenStatusPipe(const char *function, StatusPipe *statusPipe) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) == 0) {
        statusPipe->readEnd.reset(ends[0]);
        statusPipe->writeEnd.reset(ends[1]);
        if (MoveBehindStandardFds(&statusPipe->readEnd) && MoveBehindStandardFds(&statusPipe->writeEnd)) {
            return true;
        }
    }
    HBLLog(LOG_ERR, function, "pipe(): error: %s", Err_LastErrnoText());
    return false;
}

// All but the program and the status descriptor.
ServiceLaunch DescribeLaunch(const char *function, uint32_t vnet) {
    const char *binDir = HBLAnswerOr("BINDIR", nullptr);
    if (binDir == nullptr) {
        HBLLog(LOG_INFO2, function, "Cannot find BINDIR value in Vnet Config");
        binDir = "/usr/bin";
    }
    return {.program = nullptr,
            .vnet = vnet,
            .vnetName = HBLVnetName(vnet),
            .binDir = binDir,
            .runDir = HBLRunDir(),
            .configDir = HBLConfigDir(),
            .statusFd = -1};
}

bool BuildArguments(const char *function, uint32_t service, ServiceLaunch *launch,
                    ArgumentVector *arguments) {
    launch->program = HBLFindServiceProgram(service);
    if (launch->program == nullptr) {
        HBLLog(LOG_ERR, function, "Invalid service name %d", static_cast<int>(service));
        return false;
    }
    if (!HBLBuildServiceArguments(function, *launch, arguments)) {
        return false;
    }
    if (!arguments->Complete()) {
        HBLLog(LOG_ERR, function, "Memory allocation error");
        return false;
    }
    return true;
}

void LogCommand(const char *function, const ArgumentVector &arguments) {
    HBLLog(LOG_OK, function, "Fork and exec command and arguments: %s", arguments.Data()[0]);
    for (size_t i = 0; i < arguments.Count(); i++) {
        HBLLog(LOG_OK, function, "Argument: %u, %s", static_cast<unsigned>(i), arguments.Data()[i]);
    }
}

// The vector in the encoding that the system is to see, ended by a null. Made before the fork: in a child of
// a process with threads only what needs no lock is safe.
class NativeVector {
  public:
    explicit NativeVector(const ArgumentVector &arguments) {
        for (size_t i = 0; i < arguments.Count(); i++) {
            const char *text = arguments.Data()[i];
            owners_.emplace_back(static_cast<char *>(Unicode_GetAllocBytes(text, STRING_ENCODING_CURRENT)));
            pointers_.push_back(owners_.back().get());
            converted_ = converted_ && pointers_.back() != nullptr;
        }
        pointers_.push_back(nullptr);
    }
    bool Converted() const { return converted_; }
    char *const *Data() const { return pointers_.data(); }

  private:
    std::vector<MallocString> owners_;
    std::vector<char *> pointers_;
    bool converted_ = true;
};

// The child's HBLLog: straight to descriptor 2, which is the log, because the inherited stream has lost its
// descriptor and is not to be touched beside the parent's.
__attribute__((format(printf, 3, 4))) void ChildLog(uint32_t level, const char *function, const char *format,
                                                    ...) {
    if ((level & HBLLogMask()) == 0) {
        return;
    }
    char line[CHILD_LINE_SIZE];
    const size_t room = sizeof line - 1;  // for the line's end
    size_t length = static_cast<size_t>(snprintf(line, room, "%s - ", function));
    va_list args;
    va_start(args, format);
    length += static_cast<size_t>(vsnprintf(line + length, room - length, format, args));
    va_end(args);
    length = length < room ? length : room - 1;
    line[length] = '\n';
    if (write(STDERR_FILENO, line, length + 1) < 0) {
        return;  // nowhere left to say so
    }
}

void SendOutputToLog(const char *function, int logFd) {
    if (logFd < 0) {
        ChildLog(LOG_ERR, function, "Could not open log fd in child");
        return;
    }
    const int errors = dup2(logFd, STDERR_FILENO);
    const int output = dup2(logFd, STDOUT_FILENO);
    ChildLog(LOG_INFO, function, "Duping Fds status %d, %d", output, errors);
    if (logFd >= FIRST_FREE_FD) {
        close(logFd);
    }
}

// What the daemon gets beside the standard descriptors is the write end alone: it lives long and must not
// hold the database, a lock or anything of the caller's open.
void PassOnlyStatusFd(const StatusPipe &statusPipe) {
    close(statusPipe.readEnd.get());
    close_range(FIRST_FREE_FD, ~0U, CLOSE_RANGE_CLOEXEC);
    const int writeEnd = statusPipe.writeEnd.get();
    fcntl(writeEnd, F_SETFD, fcntl(writeEnd, F_GETFD) & ~FD_CLOEXEC);
}

// Every signal held back in this thread until the object goes.
class SignalsBlocked {
  public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &former_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &former_, nullptr); }
    SignalsBlocked(const SignalsBlocked &) = delete;
    SignalsBlocked &operator=(const SignalsBlocked &) = delete;
    const sigset_t &Former() const { return former_; }

  private:
    sigset_t former_;
};

// What a child needs to become the daemon.
struct ChildTask {
    const char *function;
    const StatusPipe &statusPipe;
    int logFd;
    const NativeVector &arguments;
    sigset_t signalMask;
};

// Gives the signals back as the exec would: a handler of the parent's must not run on its memory in the
// child.
void ReceiveSignalsAgain(const sigset_t &mask) {
    for (int number = 1; number < NSIG; number++) {
        struct sigaction action;
        if (sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_DFL &&
            action.sa_handler != SIG_IGN) {
            signal(number, SIG_DFL);
        }
    }
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
}

// Runs in the child, in the parent's memory: changes nothing there. Ends without the parent's exit handlers.
[[noreturn]] void RunChild(const ChildTask &task) {
    ReceiveSignalsAgain(task.signalMask);
    SendOutputToLog(task.function, task.logFd);
    PassOnlyStatusFd(task.statusPipe);
    ChildLog(LOG_INFO, task.function, "Child process started");
    const char *path = task.arguments.Data()[0];
    execv(path, task.arguments.Data());
    const char *reason = strerrordesc_np(errno);  // constant text: no lock, no allocation
    ChildLog(LOG_ERR, task.function, "exec(): Error while starting daemon: %s, error: %s", path,
             TextOrNull(reason));
    _exit(1);
}

// A fork that borrows the memory until the exec instead of copying its page tables, which during a start with
// hundreds of subnet threads costs more than all the rest.
pid_t ForkChild(ChildTask *task) {
    const SignalsBlocked blocked;
    task->signalMask = blocked.Former();
    const pid_t child = vfork();
    if (child == 0) {
        RunChild(*task);
    }
    return child;
}

// What stands in the buffers would else be written by both processes, and the log would mix up its order.
void FlushBeforeFork(FILE *log) {
    fflush(stdout);
    if (log != nullptr) {
        fflush(log);
    }
}

bool ReadReport(const char *function, int readEnd) {
    uint16_t report = 0;
    const ssize_t size = TEMP_FAILURE_RETRY(read(readEnd, &report, sizeof report));
    if (size < 0) {
        HBLLog(LOG_ERR, function, "read() failed, error: %s", Err_LastErrnoText());
        return false;
    }
    if (size == 0) {
        HBLLog(LOG_WRN, function, "Daemon process did not report status, returning failure");
        return false;
    }
    HBLLog(LOG_INFO, function, "Child process wrote status value: %u", static_cast<unsigned>(report));
    return true;
}

bool AwaitReport(const char *function, const char *path, pid_t child, StatusPipe *statusPipe) {
    statusPipe->writeEnd.reset();
    HBLLog(
        LOG_INFO, function,
        "Successfully forked off child process to start daemon: %s, pid: %d, waiting for child to complete",
        path, child);
    const pid_t waited = waitpid(child, nullptr, 0);
    HBLLog(LOG_WRN, function, "waitpid() reported pid: %d, reported error: %s", waited,
           waited > 0 ? "none" : Err_LastErrnoText());
    return ReadReport(function, statusPipe->readEnd.get());
}

bool Launch(const char *function, const ArgumentVector &arguments, StatusPipe *statusPipe) {
    const char *path = arguments.Data()[0];
    const NativeVector native(arguments);
    if (!native.Converted()) {
        HBLLog(LOG_ERR, function, "exec(): Error while starting daemon: %s, error: %s", path,
               Err_ErrnoText(EINVAL));
        return false;
    }
    HBLLog(LOG_INFO2, function, "Attempting to fork a child for the service daemon");
    FILE *log = HBLLogStream();
    FlushBeforeFork(log);
    ChildTask task = {function, *statusPipe, log != nullptr ? fileno(log) : -1, native, {}};
    const pid_t child = ForkChild(&task);
    if (child < 0) {
        HBLLog(LOG_ERR, function, "fork(): Error while forking child to start daemon: %s, error: %s", path,
               Err_LastErrnoText());
        return false;
    }
    return AwaitReport(function, path, child, statusPipe);
}

}  // namespace

bool HBLServiceStart(uint32_t vnet, uint32_t service) {
    const FunctionTrace trace(__func__);
    StatusPipe statusPipe;
    ServiceLaunch launch = DescribeLaunch(__func__, vnet);
    if (!OpenStatusPipe(__func__, &statusPipe)) {
        return false;
    }
    launch.statusFd = statusPipe.writeEnd.get();
    ArgumentVector arguments;
    if (!BuildArguments(__func__, service, &launch, &arguments)) {
        return false;
    }
    LogCommand(__func__, arguments);
    return Launch(__func__, arguments, &statusPipe);
}
