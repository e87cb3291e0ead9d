#include "daemons/confinement/fileAccess.h"

#include <fcntl.h>
#include <linux/landlock.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "daemons/common/complain.h"
#include "lib/misc/owners.h"

// Of kernels newer than some distributions' headers.
#ifndef LANDLOCK_ACCESS_FS_TRUNCATE
#define LANDLOCK_ACCESS_FS_TRUNCATE (1ULL << 14)
#endif
#ifndef LANDLOCK_ACCESS_FS_IOCTL_DEV
#define LANDLOCK_ACCESS_FS_IOCTL_DEV (1ULL << 15)
#endif
#ifndef LANDLOCK_ACCESS_NET_BIND_TCP
#define LANDLOCK_ACCESS_NET_BIND_TCP (1ULL << 0)
#define LANDLOCK_ACCESS_NET_CONNECT_TCP (1ULL << 1)
#endif
#ifndef LANDLOCK_SCOPE_SIGNAL
#define LANDLOCK_SCOPE_ABSTRACT_UNIX_SOCKET (1ULL << 0)
#define LANDLOCK_SCOPE_SIGNAL (1ULL << 1)
#endif

namespace {

// A value of an enumeration, which some distributions' headers lack: what a kernel may refuse depends on its
// own version, not on theirs.
constexpr int RULE_PORT = 2;

struct RulesetAttributes {
    uint64_t files;
    uint64_t ports;
    uint64_t scopes;
};

struct PortRule {
    uint64_t allowed;
    uint64_t port;
};

// The versions with which ports came, and the reach of signals.
constexpr long PORTS_SINCE = 4;
constexpr long SCOPES_SINCE = 6;

// Each version takes the fields that it knows.
size_t SizeOfAttributes(long version) {
    return version >= SCOPES_SINCE  ? sizeof(RulesetAttributes)
           : version >= PORTS_SINCE ? offsetof(RulesetAttributes, scopes)
                                    : offsetof(RulesetAttributes, ports);
}

// All that a version can refuse: the first thirteen, and then one more at a time, some versions excepted.
uint64_t AllFileAccess(long version) {
    constexpr struct {
        long since;
        uint64_t right;
    } LATER[] = {
        {2, LANDLOCK_ACCESS_FS_REFER}, {3, LANDLOCK_ACCESS_FS_TRUNCATE}, {5, LANDLOCK_ACCESS_FS_IOCTL_DEV}};
    uint64_t all = LANDLOCK_ACCESS_FS_REFER - 1;
    for (const auto &[since, right] : LATER) {
        if (version >= since) {
            all |= right;
        }
    }
    return all;
}

// What there is to do with a file that is no folder.
constexpr uint64_t OF_FILES = LANDLOCK_ACCESS_FS_EXECUTE | LANDLOCK_ACCESS_FS_WRITE_FILE |
                              LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_TRUNCATE;

// False with errno, also when there is no such path, which needs no rule.
bool AllowPath(int ruleset, const ReachablePath &reachable, uint64_t handled) {
    FileDescriptor path(open(reachable.path, O_PATH | O_CLOEXEC));
    struct stat status = {};
    if (!path || fstat(path.get(), &status) != 0) {
        return false;
    }
    uint64_t allowed = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;
    if (reachable.execute) {
        allowed |= LANDLOCK_ACCESS_FS_EXECUTE;
    }
    if (reachable.write) {
        allowed |= LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_TRUNCATE | LANDLOCK_ACCESS_FS_MAKE_REG |
                   LANDLOCK_ACCESS_FS_REMOVE_FILE;
    }
    if (!S_ISDIR(status.st_mode)) {
        allowed &= OF_FILES;
    }
    const landlock_path_beneath_attr rule = {allowed & handled, path.get()};
    return syscall(SYS_landlock_add_rule, ruleset, LANDLOCK_RULE_PATH_BENEATH, &rule, 0) == 0;
}

bool AllowPorts(int ruleset, std::span<const uint16_t> ports) {
    for (uint16_t port : ports) {
        const PortRule rule = {LANDLOCK_ACCESS_NET_CONNECT_TCP, port};
        if (syscall(SYS_landlock_add_rule, ruleset, RULE_PORT, &rule, 0) != 0) {
            return false;
        }
    }
    return true;
}

bool Restrict(const Confinement &confinement, long version) {
    RulesetAttributes attributes = {};
    attributes.files = AllFileAccess(version);
    if (confinement.tcp) {
        attributes.ports = LANDLOCK_ACCESS_NET_BIND_TCP | LANDLOCK_ACCESS_NET_CONNECT_TCP;
    }
    // All daemons have the same user.
    attributes.scopes = LANDLOCK_SCOPE_ABSTRACT_UNIX_SOCKET | LANDLOCK_SCOPE_SIGNAL;
    size_t size = SizeOfAttributes(version);
    FileDescriptor ruleset(static_cast<int>(syscall(SYS_landlock_create_ruleset, &attributes, size, 0)));
    if (!ruleset) {
        return false;
    }
    for (const ReachablePath &path : confinement.paths) {
        if (!AllowPath(ruleset.get(), path, attributes.files) && errno != ENOENT && errno != ENOTDIR) {
            return false;
        }
    }
    return (version < PORTS_SINCE || AllowPorts(ruleset.get(), confinement.tcpPorts)) &&
           syscall(SYS_landlock_restrict_self, ruleset.get(), 0) == 0;
}

}  // namespace

void FileAccess_Restrict(const Confinement &confinement) {
    if (!confinement.files) {
        return;
    }
    long version = syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    if (version < 1) {
        Complain("this kernel keeps no files out of reach: %s", strerror(errno));
        return;
    }
    if (confinement.tcp && version < PORTS_SINCE) {
        Complain("this kernel keeps no TCP ports out of reach");
    }
    if (!Restrict(confinement, version)) {
        Complain("cannot put files out of reach: %s", strerror(errno));
    }
}
