#include "daemons/zelan-dhcpd/powerless.h"

#include <linux/capability.h>
#include <sched.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "daemons/common/capabilities.h"
#include "daemons/common/complain.h"
#include "daemons/common/file.h"
#include "daemons/confinement/confinement.h"

namespace {

constexpr int KEPT[] = {CAP_NET_ADMIN};

bool Fail(const char *step) {
    Complain("%s: %s", step, strerror(errno));
    return false;
}

// The same number inside as outside; whoever made the namespace may write that of himself.
bool MapIdentity(const OwnUser &user) {
    auto same = [](unsigned number) { return std::to_string(number) + " " + std::to_string(number) + " 1"; };
    return File_Write("/proc/self/setgroups", "deny") &&
           File_Write("/proc/self/uid_map", same(user.user).c_str()) &&
           File_Write("/proc/self/gid_map", same(user.group).c_str());
}

// Makes the user namespace as the user itself, but with the capabilities of the caller, as hosts may forbid
// it to others. *inside stays false, after a line in the log, where the kernel makes none, as in a chroot.
bool EnterUserNamespace(const OwnUser &user, bool *inside) {
    // A process that has changed its user has its files below /proc taken away otherwise.
    if (!Capabilities_RaiseEffective() || prctl(PR_SET_DUMPABLE, 1) != 0) {
        return Fail("capabilities");
    }
    if (unshare(CLONE_NEWUSER) != 0) {
        Complain("no user namespace for dnsmasq, which keeps CAP_NET_ADMIN: %s", strerror(errno));
        return true;
    }
    *inside = true;
    return MapIdentity(user) || Fail("user namespace");
}

// Only the namespace's own bounding set can still be cut: the right to cut the host's is gone since the
// start, as are the capabilities that it would keep back.
bool KeepLeast(bool inside) {
    return (inside ? Capabilities_KeepForGood(KEPT) : Capabilities_Keep(KEPT)) || Fail("capabilities");
}

}  // namespace

bool Powerless_Become(const OwnUser &user) {
    const ReachablePath paths[] = {{.path = "/usr", .execute = true},
                                   {.path = "/lib", .execute = true},
                                   {.path = "/lib64", .execute = true},
                                   {.path = "/etc/ld.so.cache"},
                                   {.path = "/etc/nsswitch.conf"},
                                   {.path = "/etc/passwd"},
                                   {.path = "/etc/group"},
                                   {.path = "/etc/localtime"},
                                   {.path = "/proc/self"},
                                   {.path = "/dev/urandom"},
                                   {.path = "/dev/null", .write = true},
                                   {.path = "/proc/self/fd/1", .write = true}};
    bool inside = false;
    return OwnUser_Become(user) && EnterUserNamespace(user, &inside) && KeepLeast(inside) &&
           Confine({.capabilities = KEPT,
                    .ownUser = false,
                    .foreignProgram = true,
                    .files = true,
                    .paths = paths}) &&
           (Capabilities_Inherit(CAP_NET_ADMIN) || Fail("capabilities"));
}
