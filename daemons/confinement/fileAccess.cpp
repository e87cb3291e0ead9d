#include "daemons/confinement/fileAccess.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "daemons/common/complain.h"
#include "lib/misc/owners.h"

namespace {

// From <linux/landlock.h>, of which the headers of some distributions lack the newer part: what a kernel may
// refuse depends on its own version, not on theirs.
constexpr uint32_t ASK_VERSION = 1;
constexpr int RULE_PATH = 1;
constexpr int RULE_PORT = 2;

struct RulesetAttributes {
    uint64_t files;
    uint64_t ports;
    uint64_t scopes;
};

struct [[gnu::packed]] PathRule {
    uint64_t allowed;
    int32_t parent;
};

struct PortRule {
    uint64_t allowed;
    uint64_t port;
};

constexpr uint64_t EXECUTE = 1 << 0;
constexpr uint64_t WRITE_FILE = 1 << 1;
constexpr uint64_t READ_FILE = 1 << 2;
constexpr uint64_t READ_FOLDER = 1 << 3;
constexpr uint64_t REMOVE_FILE = 1 << 5;
constexpr uint64_t MAKE_FILE = 1 << 8;
constexpr uint64_t TRUNCATE = 1 << 14;

constexpr uint64_t BIND_TCP = 1 << 0;
constexpr uint64_t CONNECT_TCP = 1 << 1;

constexpr uint64_t ABSTRACT_SOCKETS = 1 << 0;
constexpr uint64_t SIGNALS = 1 << 1;

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
    constexpr uint64_t FIRST = (1 << 13) - 1;
    constexpr uint64_t SECOND = 1 << 13;
    constexpr uint64_t FIFTH = 1 << 15;
    return FIRST | (version >= 2 ? SECOND : 0) | (version >= 3 ? TRUNCATE : 0) | (version >= 5 ? FIFTH : 0);
}

// False with errno, also when there is no such path, which needs no rule.
bool AllowPath(int ruleset, const ReachablePath &reachable, uint64_t handled) {
    FileDescriptor path(open(reachable.path, O_PATH | O_CLOEXEC));
    struct stat status = {};
    if (!path || fstat(path.get(), &status) != 0) {
        return false;
    }
    bool folder = S_ISDIR(status.st_mode);
    uint64_t allowed = READ_FILE | (folder ? READ_FOLDER : 0) | (reachable.execute ? EXECUTE : 0);
    if (reachable.write) {
        allowed |= WRITE_FILE | TRUNCATE | (folder ? MAKE_FILE | REMOVE_FILE : 0);
    }
    const PathRule rule = {allowed & handled, path.get()};
    return syscall(SYS_landlock_add_rule, ruleset, RULE_PATH, &rule, 0) == 0;
}

bool AllowPorts(int ruleset, std::span<const uint16_t> ports) {
    for (uint16_t port : ports) {
        const PortRule rule = {CONNECT_TCP, port};
        if (syscall(SYS_landlock_add_rule, ruleset, RULE_PORT, &rule, 0) != 0) {
            return false;
        }
    }
    return true;
}

bool Restrict(const Confinement &confinement, long version) {
    const RulesetAttributes attributes = {
        confinement.files ? AllFileAccess(version) : 0,
        confinement.tcp && version >= PORTS_SINCE ? BIND_TCP | CONNECT_TCP : 0,
        // All daemons have the same user.
        version >= SCOPES_SINCE ? ABSTRACT_SOCKETS | SIGNALS : 0,
    };
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
    return (attributes.ports == 0 || AllowPorts(ruleset.get(), confinement.tcpPorts)) &&
           syscall(SYS_landlock_restrict_self, ruleset.get(), 0) == 0;
}

}  // namespace

void FileAccess_Restrict(const Confinement &confinement) {
    if (!confinement.files && !confinement.tcp) {
        return;
    }
    long version = syscall(SYS_landlock_create_ruleset, nullptr, 0, ASK_VERSION);
    if (version < 1) {
        Complain("this kernel keeps no files out of reach: %s", strerror(errno));
        return;
    }
    if (confinement.tcp && version < PORTS_SINCE) {
        Complain("this kernel keeps no TCP ports out of reach");
        if (!confinement.files) {
            return;
        }
    }
    if (!Restrict(confinement, version)) {
        Complain("cannot put files out of reach: %s", strerror(errno));
    }
}
