#include "daemons/common/daemon.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "daemons/common/capabilities.h"
#include "daemons/common/complain.h"
#include "daemons/common/file.h"
#include "daemons/common/options.h"
#include "daemons/common/startersLegacy.h"
#include "daemons/common/watch.h"
#include "lib/misc/owners.h"

namespace {

// The library logs the value and takes any as success.
constexpr uint16_t STATUS_UP = 0;

// A standard descriptor that is closed would be taken by the next file, which then gets the log lines or, as
// standard input, is replaced in LeaveStartersSession. False after a line in the log.
bool OpenStandardDescriptors() {
    int descriptor = 0;
    do {
        descriptor = open("/dev/null", O_RDWR);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor < 0) {
        Complain("/dev/null: %s", strerror(errno));
        return false;
    }
    close(descriptor);
    return true;
}

void ShedDescriptors(int statusDescriptor) {
    auto status = static_cast<unsigned>(statusDescriptor);
    if (status > STDERR_FILENO) {
        close_range(STDERR_FILENO + 1, status - 1, 0);
        close_range(status + 1, UINT_MAX, 0);
        fcntl(statusDescriptor, F_SETFD, FD_CLOEXEC);
    }
    // The starter may be gone before the report.
    signal(SIGPIPE, SIG_IGN);
}

void LeaveStartersSession() {
    setsid();
    (void)!chdir("/");
    int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (nothing >= 0) {
        dup2(nothing, STDIN_FILENO);
        close(nothing);
    }
}

// False after a line in the log.
bool WriteRecord(const DaemonContract &contract, pid_t daemon, const CleanUp &cleanUp) {
    Traces traces = {daemon, Process_StartTime(daemon), File_Absolute(contract.pidFile), cleanUp};
    std::string path = Traces_Path(contract.duty);
    if (!File_Replace(path.c_str(), Traces_Text(traces))) {
        Complain("%s: %s", path.c_str(), strerror(errno));
        return false;
    }
    return true;
}

// False when the other end is closed instead.
bool AwaitGoAhead(const FileDescriptor &goAhead) {
    char word = 0;
    ssize_t size = 0;
    while ((size = read(goAhead.get(), &word, sizeof word)) < 0 && errno == EINTR) {
    }
    return size > 0;
}

// False after a line in the log.
bool Guard(DaemonContract *contract, pid_t daemon, const CleanUp &cleanUp) {
    FileDescriptor process(static_cast<int>(syscall(SYS_pidfd_open, daemon, 0)));
    if (!process) {
        Complain("pidfd_open: %s", strerror(errno));
        return false;
    }
    contract->isRecorded = WriteRecord(*contract, daemon, cleanUp);
    return contract->isRecorded && Watch_Ask(contract->watch, WATCH_GUARD, process.get()) == WATCH_DONE;
}

bool WritePidFile(const char *path, pid_t daemon) {
    if (!File_Replace(path, std::to_string(daemon) + "\n")) {
        Complain("cannot write the PID file %s: %s", path, strerror(errno));
        return false;
    }
    return true;
}

}  // namespace

bool Daemon_TakeContract(DaemonContract *contract, std::span<const int> capabilities) {
    if (!Options_Number(contract->statusText, INT_MAX, &contract->statusDescriptor)) {
        Complain("option -s needs the number of a descriptor, not %s", contract->statusText);
        return false;
    }
    if (fcntl(contract->statusDescriptor, F_GETFD) < 0) {
        Complain("the status descriptor %d is not open", contract->statusDescriptor);
        return false;
    }
    if (*contract->pidFile == '\0') {
        Complain("the PID file needs a path");
        return false;
    }
    if (!OpenStandardDescriptors()) {
        return false;
    }
    ShedDescriptors(contract->statusDescriptor);
    StartersLegacy_Shed();
    contract->watch = Watch_Connect();
    if (contract->watch && !Capabilities_KeepForGood(capabilities)) {
        Complain("cannot give capabilities up: %s", strerror(errno));
    }
    return static_cast<bool>(contract->watch);
}

bool Daemon_Claim(DaemonContract *contract, Service service, int network) {
    contract->duty = {service, network};
    const std::string answer =
        Watch_AskFirst(&contract->watch, std::string(WATCH_CLAIM) + Duty_Text(contract->duty));
    if (answer == WATCH_BUSY) {
        Complain("another daemon serves this network");
    }
    return answer == WATCH_DONE;
}

void Daemon_GiveUp(DaemonContract *contract, const CleanUp &cleanUp) {
    if (!contract->isRecorded) {
        // Of a process that is about to end: the end of the connection is what the record is looked at for.
        WriteRecord(*contract, getpid(), cleanUp);
    }
    _exit(EXIT_FAILURE);
}

void Daemon_Detach(DaemonContract *contract, const CleanUp &cleanUp) {
    pid_t daemon = Daemon_Fork(contract);
    if (daemon == 0) {
        return;
    }
    if (daemon < 0 || !Daemon_LetGo(contract, daemon, cleanUp)) {
        Daemon_GiveUp(contract, cleanUp);
    }
    Daemon_Report(contract);
    _exit(EXIT_SUCCESS);
}

pid_t Daemon_Fork(DaemonContract *contract) {
    int ends[2] = {-1, -1};
    FileDescriptor await(pipe2(ends, O_CLOEXEC) == 0 ? ends[0] : -1);
    contract->goAhead.reset(ends[1]);
    pid_t daemon = await ? fork() : -1;
    if (daemon < 0) {
        Complain("fork: %s", strerror(errno));
    } else if (daemon == 0) {
        contract->goAhead.reset();
        contract->watch.reset();
        close(contract->statusDescriptor);
        LeaveStartersSession();
        // As another user's, which it may become, it could not be killed by a foreground process that fails.
        if (!AwaitGoAhead(await)) {
            _exit(EXIT_FAILURE);
        }
    }
    return daemon;
}

bool Daemon_LetGo(DaemonContract *contract, pid_t daemon, const CleanUp &cleanUp) {
    constexpr char WORD = 1;
    FileDescriptor goAhead = std::move(contract->goAhead);
    if (!Guard(contract, daemon, cleanUp) || !WritePidFile(contract->pidFile, daemon)) {
        return false;
    }
    if (write(goAhead.get(), &WORD, sizeof WORD) != sizeof WORD) {
        Complain("the daemon has been killed: %s", strerror(errno));
        unlink(contract->pidFile);
        return false;
    }
    return true;
}

void Daemon_End(const DaemonContract &contract, pid_t daemon) {
    kill(daemon, SIGKILL);
    waitpid(daemon, nullptr, 0);
    unlink(contract.pidFile);
}

void Daemon_Report(DaemonContract *contract) {
    if (write(contract->statusDescriptor, &STATUS_UP, sizeof STATUS_UP) != sizeof STATUS_UP) {
        Complain("nobody takes the status report: %s", strerror(errno));
    }
}
