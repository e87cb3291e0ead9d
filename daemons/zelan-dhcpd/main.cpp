// zelan-dhcpd -s W -cf CONFIGURATION -lf LEASES -pf PIDFILE zelan<N>
//
// Serves DHCP on network N. The server is ISC dhcpd; this program gives it a network namespace of its own
// with a port on the network's switch, starts it there and leaves it alone. Neither the host's interface on
// the network nor anything else of the host is needed for it.
#include <fcntl.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "daemons/common/address.h"
#include "daemons/common/complain.h"
#include "daemons/common/daemon.h"
#include "daemons/common/file.h"
#include "daemons/common/namespace.h"
#include "daemons/common/options.h"
#include "daemons/common/switch.h"
#include "daemons/zelan-dhcpd/serverAddress.h"

namespace {

// Where distributions and local builds put ISC dhcpd.
constexpr const char *SERVER_PLACES[] = {"/usr/sbin/dhcpd", "/usr/local/sbin/dhcpd", "/usr/bin/dhcpd"};

// SYS_ADMIN for the namespace.
constexpr int CAPABILITIES[] = {CAP_NET_ADMIN,        CAP_SYS_ADMIN, CAP_NET_RAW,
                                CAP_NET_BIND_SERVICE, CAP_SETUID,    CAP_SETGID};

struct Arguments {
    DaemonContract contract;
    const char *configuration = nullptr;
    const char *leases = nullptr;
    const char *name = nullptr;  // of the network, and of the server's interface in its namespace
    int network = -1;
};

bool ReadArguments(char **argv, Arguments *arguments) {
    const OptionRule rules[] = {{"-s", &arguments->contract.statusText},
                                {"-cf", &arguments->configuration},
                                {"-lf", &arguments->leases},
                                {"-pf", &arguments->contract.pidFile}};
    std::vector<const char *> operands;
    if (!Options_Read(argv, rules, &operands)) {
        return false;
    }
    if (operands.size() != 1 || !Options_Network(operands[0], &arguments->network)) {
        Complain("usage: -s DESCRIPTOR -cf CONFIGURATION -lf LEASES -pf PIDFILE zelan<N>");
        return false;
    }
    arguments->name = operands[0];
    return Daemon_TakeContract(&arguments->contract, CAPABILITIES) &&
           Daemon_Claim(&arguments->contract, Service::DHCP, arguments->network);
}

const char *FindServer() {
    for (const char *place : SERVER_PLACES) {
        if (access(place, X_OK) == 0) {
            return place;
        }
    }
    Complain("ISC dhcpd is not installed: there is no %s", SERVER_PLACES[0]);
    return nullptr;
}

// The process id in a PID file; 0 for none.
pid_t ReadPidFile(const char *path) {
    std::string text;
    int pid = 0;
    if (!File_Read(path, &text) || !Options_Number(text.substr(0, text.find('\n')), INT_MAX, &pid)) {
        return 0;
    }
    return pid;
}

// dhcpd refuses to start while any process has the id in its PID file, so a stale one has to go. False when
// a server with this PID file is really running.
bool ClearPidFile(const char *path) {
    pid_t pid = ReadPidFile(path);
    std::string command;
    if (pid > 0 && File_Read(("/proc/" + std::to_string(pid) + "/cmdline").c_str(), &command) &&
        command.find(path) != std::string::npos) {
        Complain("dhcpd is running already, pid %d", static_cast<int>(pid));
        return false;
    }
    unlink(path);
    return true;
}

// Without an address on the interface dhcpd refuses to start and says why, which is left to it.
void GiveAddress(const Arguments &arguments, RtSocket *inside, int link) {
    std::string text;
    ServerAddress chosen;
    const char *reason = nullptr;
    if (!File_Read(arguments.configuration, &text)) {
        return;
    }
    if (!ServerAddress_Choose(text, &chosen, &reason)) {
        Complain("%s: %s", arguments.configuration, reason);
        return;
    }
    int error = Address_Add(inside, link, chosen.address, chosen.prefix);
    if (error != 0) {
        Complain("cannot take the address %s: %s", Ipv4_Text(chosen.address).c_str(), strerror(error));
    }
}

// Makes the server's namespace with its interface. Empty after a line in the log.
FileDescriptor MakePlace(const Arguments &arguments, CleanUp *cleanUp) {
    char portName[IFNAMSIZ];
    snprintf(portName, sizeof portName, "zelan-dh%d", arguments.network);
    FileDescriptor space = Namespace_Make();
    RtSocket outside;
    SwitchPort port;
    if (!space || !outside.Open() ||
        !Switch_MakePort(&outside, arguments.network, portName, arguments.name, space.get(), &port)) {
        return {};
    }
    cleanUp->links.push_back(port.portIndex);

    NamespaceVisit visit(space);
    RtSocket inside;
    int link = visit.entered() ? static_cast<int>(if_nametoindex(arguments.name)) : 0;
    if (link == 0 || !inside.Open()) {
        return {};
    }
    GiveAddress(arguments, &inside, link);
    int error = Link_SetFlags(&inside, link, IFF_UP, IFF_UP);
    if (error != 0) {
        Complain("cannot bring %s up: %s", arguments.name, strerror(error));
        return {};
    }
    return space;
}

[[noreturn]] void Execute(const char *server, const Arguments &arguments, const FileDescriptor &space) {
    // Without -q, with which it would also keep its complaints about the configuration to itself.
    const char *vector[] = {server,         "-4",
                            "-cf",          arguments.configuration,
                            "-lf",          arguments.leases,
                            "-pf",          arguments.contract.pidFile,
                            arguments.name, nullptr};
    if (Namespace_Enter(space)) {
        signal(SIGPIPE, SIG_DFL);
        execv(server, const_cast<char **>(vector));
        Complain("%s: %s", server, strerror(errno));
    }
    _exit(EXIT_FAILURE);
}

// dhcpd serves on when it could not write its PID file. It is the only child of this process then.
void KillServer() {
    std::string child;
    int pid = 0;
    if (File_Read("/proc/thread-self/children", &child) &&
        Options_Number(child.substr(0, child.find(' ')), INT_MAX, &pid)) {
        kill(pid, SIGKILL);
    }
}

// Starts dhcpd, which ends its foreground process once its configuration is read and its sockets are open,
// and until then says on standard error what it does not like. Returns its process id; 0 after a line in the
// log.
pid_t StartServer(const char *server, const Arguments &arguments, const FileDescriptor &space) {
    // The server becomes a child of this process when its foreground process ends, so that its id cannot
    // become another's before it is watched.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    pid_t foreground = fork();
    if (foreground == 0) {
        Execute(server, arguments, space);
    }
    int status = 0;
    while (foreground > 0 && waitpid(foreground, &status, 0) < 0 && errno == EINTR) {
    }
    if (foreground < 0 || !WIFEXITED(status) || WEXITSTATUS(status) != EXIT_SUCCESS) {
        Complain("dhcpd does not serve %s with %s", arguments.name, arguments.configuration);
        return 0;
    }
    pid_t pid = ReadPidFile(arguments.contract.pidFile);
    siginfo_t state = {};
    if (pid <= 0 || waitid(P_PID, static_cast<id_t>(pid), &state, WEXITED | WNOHANG | WNOWAIT) != 0 ||
        state.si_pid != 0) {
        Complain("dhcpd has ended, or left no process id in %s", arguments.contract.pidFile);
        KillServer();
        return 0;
    }
    return pid;
}

bool Start(Arguments *arguments, CleanUp *cleanUp) {
    const char *server = FindServer();
    if (server == nullptr || !ClearPidFile(arguments->contract.pidFile)) {
        return false;
    }
    FileDescriptor space = MakePlace(*arguments, cleanUp);
    pid_t pid = space ? StartServer(server, *arguments, space) : 0;
    if (pid == 0) {
        return false;
    }
    if (!Daemon_Guard(&arguments->contract, pid, *cleanUp)) {
        kill(pid, SIGKILL);
        return false;
    }
    return true;
}

}  // namespace

int main(int, char **argv) {
    Arguments arguments;
    if (!ReadArguments(argv, &arguments)) {
        return EXIT_FAILURE;
    }
    CleanUp cleanUp;
    if (!Start(&arguments, &cleanUp)) {
        Daemon_GiveUp(&arguments.contract, cleanUp);
    }
    Daemon_Report(&arguments.contract);
}
