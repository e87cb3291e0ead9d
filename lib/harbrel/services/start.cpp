// Starting a daemon: argument vector, fork, exec, and the status report on a pipe.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "lib/err/errText.h"
#include "lib/harbrel/base/functionTrace.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/files/files.h"
#include "lib/harbrel/services/arguments.h"
#include "lib/harbrel/services/daemonProcess.h"
#include "lib/harbrel/services/daemons.h"
#include "lib/harbrel/services/programs.h"
#include "lib/misc/owners.h"
#include "lib/unicode/unicode.h"

namespace {

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
bool OpenStatusPipe(FunctionLog log, StatusPipe *statusPipe) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) == 0) {
        statusPipe->readEnd.reset(ends[0]);
        statusPipe->writeEnd.reset(ends[1]);
        if (MoveBehindStandardFds(&statusPipe->readEnd) && MoveBehindStandardFds(&statusPipe->writeEnd)) {
            return true;
        }
    }
    log(LOG_ERR, "pipe(): error: %s", Err_LastErrnoText());
    return false;
}

std::string FindBinDir(FunctionLog log) {
    const auto binDir = HBLNetCfgCopyAnswer(nullptr, "BINDIR");
    if (!binDir.has_value()) {
        log(LOG_INFO2, "Cannot find BINDIR value in Vnet Config");
    }
    return binDir.value_or("/usr/bin");
}

bool BuildArguments(FunctionLog log, const ServiceLaunch &launch, ArgumentVector *arguments) {
    if (!HBLBuildServiceArguments(log, launch, arguments)) {
        return false;
    }
    if (!arguments->Complete()) {
        log(LOG_ERR, "Memory allocation error");
        return false;
    }
    return true;
}

void LogCommand(FunctionLog log, const ArgumentVector &arguments) {
    log(LOG_OK, "Fork and exec command and arguments: %s", arguments.Data()[0]);
    for (size_t i = 0; i < arguments.Count(); i++) {
        log(LOG_OK, "Argument: %u, %s", static_cast<unsigned>(i), arguments.Data()[i]);
    }
}

// The same vector in the encoding that the system is to see. False when that has no form for one of the
// texts.
bool ConvertArguments(const ArgumentVector &arguments, ArgumentVector *native) {
    for (size_t i = 0; i < arguments.Count(); i++) {
        native->Append(
            static_cast<char *>(Unicode_GetAllocBytes(arguments.Data()[i], STRING_ENCODING_CURRENT)));
    }
    return native->Complete();
}

bool ReadReport(FunctionLog log, int readEnd) {
    uint16_t report = 0;
    const ssize_t size = TEMP_FAILURE_RETRY(read(readEnd, &report, sizeof report));
    if (size < 0) {
        log(LOG_ERR, "read() failed, error: %s", Err_LastErrnoText());
        return false;
    }
    if (size == 0) {
        log(LOG_WRN, "Daemon process did not report status, returning failure");
        return false;
    }
    log(LOG_INFO, "Child process wrote status value: %u", static_cast<unsigned>(report));
    return true;
}

bool AwaitReport(FunctionLog log, const char *path, pid_t child, StatusPipe *statusPipe) {
    statusPipe->writeEnd.reset();
    log(LOG_INFO,
        "Successfully forked off child process to start daemon: %s, pid: %d, waiting for child to complete",
        path, child);
    const pid_t waited = waitpid(child, nullptr, 0);
    log(LOG_WRN, "waitpid() reported pid: %d, reported error: %s", waited,
        waited > 0 ? "none" : Err_LastErrnoText());
    return ReadReport(log, statusPipe->readEnd.get());
}

bool Launch(FunctionLog log, const ArgumentVector &arguments, StatusPipe *statusPipe) {
    const char *path = arguments.Data()[0];
    ArgumentVector native;
    if (!ConvertArguments(arguments, &native)) {
        log(LOG_ERR, "exec(): Error while starting daemon: %s, error: %s", path, Err_ErrnoText(EINVAL));
        return false;
    }
    log(LOG_INFO2, "Attempting to fork a child for the service daemon");
    FILE *logStream = HBLLogStream();
    if (logStream != nullptr) {
        fflush(logStream);  // the child writes to the same file past the buffer
    }
    const pid_t child = HBLForkDaemon({log, statusPipe->readEnd.get(), statusPipe->writeEnd.get(),
                                       logStream != nullptr ? fileno(logStream) : -1, native.Data()});
    if (child < 0) {
        log(LOG_ERR, "fork(): Error while forking child to start daemon: %s, error: %s", path,
            Err_LastErrnoText());
        return false;
    }
    return AwaitReport(log, path, child, statusPipe);
}

}  // namespace

bool HBLServiceStart(uint32_t vnet, uint32_t service) {
    const FunctionTrace trace(__func__);
    const FunctionLog log(__func__);
    const std::string binDir = FindBinDir(log);
    StatusPipe statusPipe;
    if (!OpenStatusPipe(log, &statusPipe)) {
        return false;
    }
    const ServiceProgram *program = HBLFindServiceProgram(service);
    if (program == nullptr) {
        log(LOG_ERR, "Invalid service name %d", static_cast<int>(service));
        return false;
    }
    const ServiceLaunch launch = {.program = *program,
                                  .vnet = vnet,
                                  .vnetName = HBLVnetName(vnet),
                                  .binDir = binDir,
                                  .runDir = HBLRunDir(),
                                  .configDir = HBLConfigDir(),
                                  .statusFd = statusPipe.writeEnd.get()};
    ArgumentVector arguments;
    if (!BuildArguments(log, launch, &arguments)) {
        return false;
    }
    LogCommand(log, arguments);
    return Launch(log, arguments, &statusPipe);
}
