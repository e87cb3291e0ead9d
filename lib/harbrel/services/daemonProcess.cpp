#include "lib/harbrel/services/daemonProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

constexpr size_t CHILD_LINE_SIZE = 8192;

// The child's HBLLog: straight to descriptor 2, which is the log, because the inherited stream has lost its
// descriptor and is not to be touched beside the parent's.
__attribute__((format(printf, 3, 4))) void ChildLog(uint32_t level, FunctionLog log, const char *format,
                                                    ...) {
    if ((level & HBLLogMask()) == 0) {
        return;
    }
    char line[CHILD_LINE_SIZE];
    const size_t room = sizeof line - 1;  // for the line's end
    size_t length = static_cast<size_t>(snprintf(line, room, "%s - ", log.Function()));
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

void SendOutputToLog(FunctionLog log, int logFd) {
    if (logFd < 0) {
        ChildLog(LOG_ERR, log, "Could not open log fd in child");
        return;
    }
    const int errors = dup2(logFd, STDERR_FILENO);
    const int output = dup2(logFd, STDOUT_FILENO);
    ChildLog(LOG_INFO, log, "Duping Fds status %d, %d", output, errors);
    if (logFd >= FIRST_FREE_FD) {
        close(logFd);
    }
}

// What the daemon gets beside the standard descriptors is the write end alone: it lives long and must not
// hold the database, a lock or anything of the caller's open.
void PassOnlyStatusFd(const DaemonProcess &task) {
    close(task.readEnd);
    close_range(FIRST_FREE_FD, ~0U, CLOSE_RANGE_CLOEXEC);
    fcntl(task.writeEnd, F_SETFD, fcntl(task.writeEnd, F_GETFD) & ~FD_CLOEXEC);
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
[[noreturn]] void RunChild(const DaemonProcess &task, const sigset_t &signalMask) {
    ReceiveSignalsAgain(signalMask);
    SendOutputToLog(task.log, task.logFd);
    PassOnlyStatusFd(task);
    ChildLog(LOG_INFO, task.log, "Child process started");
    const char *path = task.arguments[0];
    execv(path, task.arguments);
    const char *reason = strerrordesc_np(errno);  // constant text: no lock, no allocation
    ChildLog(LOG_ERR, task.log, "exec(): Error while starting daemon: %s, error: %s", path,
             TextOrNull(reason));
    _exit(1);
}

}  // namespace

// A fork that borrows the memory until the exec instead of copying its page tables, which during a start with
// hundreds of subnet threads costs more than all the rest.
pid_t HBLForkDaemon(const DaemonProcess &task) {
    const SignalsBlocked blocked;
    const pid_t child = vfork();
    if (child == 0) {
        RunChild(task, blocked.Former());
    }
    return child;
}
