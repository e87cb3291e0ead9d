#include <linux/capability.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "daemons/common/complain.h"
#include "daemons/common/file.h"
#include "daemons/confinement/confinement.h"
#include "daemons/zelan-dhcpd/server.h"

namespace {

// It receives on a packet socket, and what is sent to its own address on port 67. That no exec brings others
// back has been seen to, by forgoing new privileges.
constexpr int CAPABILITIES[] = {CAP_NET_RAW, CAP_NET_BIND_SERVICE};

// Root owns most files of a host and may signal every process of root's; neither is left to it. It renames
// its lease file, for which the folder must be open to it.
bool Restrict(const ServerStart &start) {
    const std::string folder = start.leases.substr(0, start.leases.rfind('/') + 1);
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
                                        {.path = start.configuration.c_str()},
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

// In the foreground it is the process that was forked. It writes what it takes for its PID file once its
// configuration is read and its sockets are open: a file without a name, its standard output.
Server Server_Dhcpd(const ServerStart &start) {
    FileDescriptor output(memfd_create("dhcpd.pid", MFD_CLOEXEC));
    if (!output) {
        Complain("PID file of dhcpd: %s", strerror(errno));
    }
    // Without -q, with which it would also keep its complaints about the configuration to itself.
    return {.arguments = {"-4", "-f", "-cf", start.configuration, "-lf", start.leases, "-pf",
                          "/proc/self/fd/1", start.name},
            .input = {},
            .output = std::move(output),
            .sign = ServerSign::WRITES_STANDARD_OUTPUT,
            .confine = [&start] { return Restrict(start); },
            .hint = HintAtAppArmor};
}
