// zelan-detect -s W -d PIDFILE
//
// Follows the host's links, addresses, routes and name servers and writes one line for each change to
// standard output, which is the library's log file.
#include <linux/capability.h>
#include <poll.h>
#include <sys/syscall.h>

#include <array>
#include <cstdlib>
#include <vector>

#include "daemons/common/complain.h"
#include "daemons/common/daemon.h"
#include "daemons/common/options.h"
#include "daemons/confinement/confinement.h"
#include "daemons/zelan-detect/facts.h"
#include "daemons/zelan-detect/kernelView.h"
#include "daemons/zelan-detect/nameServers.h"

namespace {

const FactKey NAME_SERVERS = {"name servers", ""};

// Where announcements do not tell all, the whole state is read once they have stopped for this long: a sweep
// over many networks makes hundreds of them.
constexpr int SETTLE_MILLISECONDS = 100;

// For the announcements' large receive buffer.
constexpr int CAPABILITIES[] = {CAP_NET_ADMIN, CAP_SETUID, CAP_SETGID, CAP_KILL};

// Afterwards it asks the kernel, and reads the file with the name servers wherever a link in /etc leads.
constexpr int SYSTEM_CALLS[] = {SYS_sendto, SYS_recvfrom, SYS_inotify_add_watch, SYS_openat, SYS_newfstatat,
                                SYS_fstat,  SYS_lseek,    SYS_readlinkat};
constexpr ReachablePath PATHS[] = {{"/etc"}, {"/run"}, {"/var/run"}};

bool ReadArguments(char **argv, DaemonContract *contract) {
    const OptionRule rules[] = {{"-s", &contract->statusText}, {"-d", &contract->pidFile}};
    std::vector<const char *> operands;
    if (!Options_Read(argv, rules, &operands)) {
        return false;
    }
    if (!operands.empty()) {
        Complain("usage: -s DESCRIPTOR -d PIDFILE");
        return false;
    }
    return Daemon_TakeContract(contract, CAPABILITIES) && Daemon_Claim(contract, Service::DETECT, -1);
}

[[noreturn]] void FollowChanges(KernelView *kernel, NameServers *nameServers, Facts *facts) {
    std::array<pollfd, 2> sources = {
        {{kernel->announcements(), POLLIN, 0}, {nameServers->notices(), POLLIN, 0}}};
    bool incomplete = false;
    for (;;) {
        int ready = poll(sources.data(), sources.size(), incomplete ? SETTLE_MILLISECONDS : -1);
        if (ready == 0) {
            incomplete = false;
            FactMap whole;
            if (kernel->ReadAll(&whole)) {
                facts->Replace(whole, NAME_SERVERS.kind);
            }
        }
        if (ready > 0 && sources[0].revents != 0) {
            incomplete = !kernel->Follow(facts) || incomplete;
        }
        if (ready > 0 && sources[1].revents != 0) {
            nameServers->TakeNotices();
            facts->Set(NAME_SERVERS, nameServers->Read());
        }
    }
}

}  // namespace

int main(int, char **argv) {
    DaemonContract contract;
    if (!ReadArguments(argv, &contract)) {
        return EXIT_FAILURE;
    }
    KernelView kernel;
    NameServers nameServers;
    FactMap first;
    if (!kernel.Open() || !nameServers.Open() || !kernel.ReadAll(&first)) {
        return EXIT_FAILURE;
    }
    first[NAME_SERVERS] = nameServers.Read();
    Facts facts;
    facts.Begin(std::move(first));
    Daemon_Detach(&contract, CleanUp());
    Confine({.systemCalls = SYSTEM_CALLS, .files = true, .paths = PATHS, .tcp = true});
    FollowChanges(&kernel, &nameServers, &facts);
}
