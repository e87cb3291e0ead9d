#include "daemons/common/namespace.h"

#include <fcntl.h>
#include <sched.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "daemons/common/complain.h"
#include "daemons/common/link.h"
#include "daemons/common/rtnetlink.h"

namespace {

constexpr int LOOPBACK_INDEX = 1;

// Empty after a line in the log.
FileDescriptor OpenCurrent() {
    constexpr const char *CURRENT = "/proc/self/ns/net";
    FileDescriptor space(open(CURRENT, O_RDONLY | O_CLOEXEC));
    if (!space) {
        Complain("%s: %s", CURRENT, strerror(errno));
    }
    return space;
}

bool SetUpCurrent() {
    RtSocket socket;
    return Link_ForbidIpv6("all") && Link_ForbidIpv6("default") && socket.Open() &&
           Link_SetFlags(&socket, LOOPBACK_INDEX, IFF_UP, IFF_UP) == 0;
}

// Nothing that follows would happen where it should.
void ReturnTo(const FileDescriptor &home) {
    if (setns(home.get(), CLONE_NEWNET) != 0) {
        Complain("cannot return to the host's network namespace: %s", strerror(errno));
        _exit(EXIT_FAILURE);
    }
}

}  // namespace

FileDescriptor Namespace_Make() {
    FileDescriptor home = OpenCurrent();
    FileDescriptor space;
    if (home && unshare(CLONE_NEWNET) == 0) {
        space = OpenCurrent();
        if (space && !SetUpCurrent()) {
            space.reset();
        }
        ReturnTo(home);
    }
    if (!space) {
        Complain("cannot make a network namespace: %s", strerror(errno));
    }
    return space;
}

bool Namespace_Enter(const FileDescriptor &space) {
    if (setns(space.get(), CLONE_NEWNET) != 0) {
        Complain("cannot enter a network namespace: %s", strerror(errno));
        return false;
    }
    return true;
}

NamespaceVisit::NamespaceVisit(const FileDescriptor &space) : home_(OpenCurrent()) {
    if (home_ && !Namespace_Enter(space)) {
        home_.reset();
    }
}

NamespaceVisit::~NamespaceVisit() {
    if (home_) {
        ReturnTo(home_);
    }
}
