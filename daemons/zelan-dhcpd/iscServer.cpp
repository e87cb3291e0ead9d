#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "daemons/common/complain.h"
#include "daemons/common/file.h"
#include "daemons/common/namespace.h"
#include "daemons/common/options.h"
#include "daemons/confinement/confinement.h"
#include "daemons/zelan-dhcpd/server.h"

namespace {

// It receives on a packet socket, and what is sent to its own address on port 67. That no exec brings others
// back has been seen to, by forgoing new privileges.
constexpr int CAPABILITIES[] = {CAP_NET_RAW, CAP_NET_BIND_SERVICE};

// Root owns most files of a host and may signal every process of root's; neither is left to it. It renames
// its lease file, for which the folder must be open to it.
bool Restrict(const ServerStart &start) {
    const std::string leases = start.leases;
    const std::string folder = leases.substr(0, leases.rfind('/') + 1);
    std::vector<ReachablePath> paths = {{.path = "/usr", .execute = true},
                                        {.path = "/lib", .execute = true},
                                        {.path = "/lib64", .execute = true},
                                        {.path = "/etc/ld.so.cache"},
                                        {.path = "/etc/nsswitch.conf"},
                                        {.path = "/etc/hosts"},
                                        {.path = "/etc/protocols"},
                                        {.path = "/etc/services"},
                                        {.path = "/etc/passwd"},
                                        {.path = "/etc/group"},
                                        {.path = "/etc/localtime"},
                                        {.path = "/dev/urandom"},
                                        {.path = "/dev/null", .write = true},
                                        {.path = start.configuration},
                                        {.path = folder.c_str(), .write = true}};
    for (const std::string &file : start.included) {
        paths.push_back({.path = file.c_str()});
    }
    return Confine({.capabilities = CAPABILITIES,
                    .ownUser = false,
                    .foreignProgram = true,
                    .files = true,
                    .paths = paths});
}

[[noreturn]] void Execute(const ServerStart &start) {
    // Without -q, with which it would also keep its complaints about the configuration to itself.
    const char *vector[] = {start.program, "-4",       "-cf",  start.configuration, "-lf", start.leases,
                            "--no-pid",    start.name, nullptr};
    if (Namespace_Enter(start.space) && Restrict(start)) {
        signal(SIGPIPE, SIG_DFL);
        execv(start.program, const_cast<char **>(vector));
        Complain("%s: %s", start.program, strerror(errno));
    }
    _exit(EXIT_FAILURE);
}

// The only child that this process has left, as long as it is not reaped; 0 for none.
pid_t TheChild() {
    std::string child;
    int pid = 0;
    siginfo_t state = {};
    bool lives = File_Read("/proc/thread-self/children", &child) &&
                 Options_Number(child.substr(0, child.find(' ')), INT_MAX, &pid) &&
                 waitid(P_PID, static_cast<id_t>(pid), &state, WEXITED | WNOHANG | WNOWAIT) == 0 &&
                 state.si_pid == 0;
    return lives ? pid : 0;
}

// What the system hides from dhcpd it does not name as the reason.
void HintAtAppArmor() {
    std::string profiles;
    if (File_Read("/sys/kernel/security/apparmor/profiles", &profiles) &&
        profiles.find("dhcpd (enforce)") != std::string::npos) {
        Complain(
            "where its AppArmor profile denies dhcpd a file, 'apparmor_parser -r "
            "/etc/apparmor.d/usr.sbin.dhcpd' loads what the installation has added to it");
    }
}

}  // namespace

// dhcpd ends its foreground process once its configuration is read and its sockets are open, and until then
// says on standard error what it does not like.
pid_t Server_StartDhcpd(const ServerStart &start) {
    // The server becomes a child of this process when its foreground process ends, so that its id cannot
    // become another's before it is watched.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    pid_t foreground = fork();
    if (foreground == 0) {
        Execute(start);
    }
    int status = 0;
    while (foreground > 0 && waitpid(foreground, &status, 0) < 0 && errno == EINTR) {
    }
    if (foreground < 0 || !WIFEXITED(status) || WEXITSTATUS(status) != EXIT_SUCCESS) {
        Complain("dhcpd does not serve %s with %s", start.name, start.configuration);
        HintAtAppArmor();
        return 0;
    }
    pid_t pid = TheChild();
    if (pid == 0) {
        Complain("dhcpd has ended as soon as it served");
    }
    return pid;
}
