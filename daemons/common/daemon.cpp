#include "daemons/common/daemon.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "daemons/common/complain.h"
#include "daemons/common/file.h"
#include "daemons/common/linkGroup.h"
#include "daemons/common/options.h"
#include "daemons/common/startersLegacy.h"
#include "daemons/common/switch.h"
#include "lib/misc/owners.h"

namespace {

// The library logs the value and takes any as success.
constexpr uint16_t STATUS_UP = 0;

void CloseRange(unsigned first, unsigned last) {
    if (first <= last) {
        close_range(first, last, 0);
    }
}

// A standard descriptor that is closed would be taken by the next file, which then gets the log lines or, as
// standard input, is replaced in LeaveStartersSession.
void OpenStandardDescriptors() {
    int descriptor = 0;
    do {
        descriptor = open("/dev/null", O_RDWR);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    close(descriptor);
}

void ShedDescriptors(int statusDescriptor) {
    OpenStandardDescriptors();
    auto status = static_cast<unsigned>(statusDescriptor);
    if (status > STDERR_FILENO) {
        CloseRange(STDERR_FILENO + 1, status - 1);
        CloseRange(status + 1, UINT_MAX);
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

// Removing an interface takes the kernel long and is left for later. The tool asks by name whether it still
// exists, and must find the name and the addresses given up as soon as the daemon is dead.
void PutAside(RtSocket *socket, int link) {
    char name[IFNAMSIZ];
    snprintf(name, sizeof name, "zelan-x%x", static_cast<unsigned>(link));
    Link_SetFlags(socket, link, 0, IFF_UP);
    Link_SetName(socket, link, name);
}

void RemoveTraces(int network, const CleanUp &cleanUp) {
    RtSocket socket;
    if (!socket.Open()) {
        return;
    }
    if (cleanUp.hostInterface != 0) {
        PutAside(&socket, cleanUp.hostInterface);
    }
    for (int link : cleanUp.links) {
        Link_SetGroup(&socket, link, LINK_GROUP_DEAD);
    }
    Switch_RemoveDeadLinks(&socket);
    if (cleanUp.rest != nullptr) {
        cleanUp.rest();
    }
    if (network >= 0) {
        Switch_RemoveWhenUnused(&socket, network);
    }
}

// Holds nothing of the daemon's but the log: neither its switch use nor its TAPs nor the pipe.
[[noreturn]] void RunWatcher(int process, int network, const CleanUp &cleanUp) {
    for (int signalNumber : {SIGTERM, SIGINT, SIGHUP, SIGQUIT}) {
        signal(signalNumber, SIG_IGN);
    }
    prctl(PR_SET_NAME, "zelan-watch");
    CloseRange(STDERR_FILENO + 1, static_cast<unsigned>(process) - 1);
    CloseRange(static_cast<unsigned>(process) + 1, UINT_MAX);
    LeaveStartersSession();
    pollfd end = {process, POLLIN, 0};
    while (poll(&end, 1, -1) < 0 && errno == EINTR) {
    }
    RemoveTraces(network, cleanUp);
    _exit(EXIT_SUCCESS);
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
    ShedDescriptors(contract->statusDescriptor);
    StartersLegacy_Shed(capabilities);
    return true;
}

bool Daemon_Claim(DaemonContract *contract, Service service, int network) {
    contract->service = service;
    contract->network = network;
    if (network < 0) {
        return true;
    }
    contract->lock.emplace(network);
    if (!contract->lock->held() || !contract->use.Begin(network)) {
        return false;
    }
    if (service == Service::DHCP) {
        contract->use.KeepAcrossExec();
    }
    return true;
}

void Daemon_GiveUp(DaemonContract *contract, const CleanUp &cleanUp) {
    if (fork() == 0) {
        CloseRange(STDERR_FILENO + 1, UINT_MAX);
        LeaveStartersSession();
        RemoveTraces(contract->network, cleanUp);
    }
    _exit(EXIT_FAILURE);
}

void Daemon_Detach(DaemonContract *contract, const CleanUp &cleanUp) {
    pid_t daemon = fork();
    if (daemon == 0) {
        close(contract->statusDescriptor);
        contract->lock.reset();
        LeaveStartersSession();
        return;
    }
    if (daemon < 0) {
        Complain("fork: %s", strerror(errno));
        Daemon_GiveUp(contract, cleanUp);
    }
    if (!Daemon_Guard(contract, daemon, cleanUp)) {
        kill(daemon, SIGKILL);
        waitpid(daemon, nullptr, 0);
        Daemon_GiveUp(contract, cleanUp);
    }
    if (!WritePidFile(contract->pidFile, daemon)) {
        kill(daemon, SIGKILL);
        _exit(EXIT_FAILURE);
    }
    Daemon_Report(contract);
    _exit(EXIT_SUCCESS);
}

bool Daemon_Guard(DaemonContract *contract, pid_t daemon, const CleanUp &cleanUp) {
    if (contract->network < 0) {
        return true;
    }
    FileDescriptor process(static_cast<int>(syscall(SYS_pidfd_open, daemon, 0)));
    if (!process) {
        Complain("pidfd_open: %s", strerror(errno));
        return false;
    }
    pid_t watcher = fork();
    if (watcher == 0) {
        RunWatcher(process.get(), contract->network, cleanUp);
    }
    if (watcher < 0) {
        Complain("fork: %s", strerror(errno));
    }
    return watcher > 0;
}

void Daemon_Report(DaemonContract *contract) {
    if (write(contract->statusDescriptor, &STATUS_UP, sizeof STATUS_UP) != sizeof STATUS_UP) {
        Complain("nobody takes the status report: %s", strerror(errno));
    }
    close(contract->statusDescriptor);
}
