#include "daemons/common/switch.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "daemons/common/complain.h"
#include "daemons/common/linkGroup.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Every lock is one byte of this file, held by an open file description: byte N guards network N, byte
// USE_OFFSET + N is shared by the living users of its switch, TURN_OFFSET is held by the one who removes.
constexpr const char *LOCK_FILE = "/var/run/zelan-switch.lock";
constexpr off_t USE_OFFSET = 256;
constexpr off_t TURN_OFFSET = 512;

// Daemons that start or end leave their time on the lock file; removals wait for this long a silence,
constexpr milliseconds QUIET_TIME{200};
// but never longer than this in all.
constexpr milliseconds QUIET_LIMIT{3000};

// How long a predecessor's interface may take to be given up by its watcher.
constexpr milliseconds LEFTOVER_TIME{300};
constexpr int LEFTOVER_POLL_MILLISECONDS = 2;

// How often a switch with guests on it and no daemon is looked at.
constexpr int GUEST_POLL_MILLISECONDS = 1000;

void Pause(int duration) {
    poll(nullptr, 0, duration);
}

FileDescriptor OpenLockFile() {
    FileDescriptor file(open(LOCK_FILE, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file) {
        Complain("%s: %s", LOCK_FILE, strerror(errno));
    }
    return file;
}

struct flock ByteLock(short type, off_t offset) {
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = offset;
    lock.l_len = 1;
    return lock;
}

bool WaitForLock(const FileDescriptor &file, short type, off_t offset) {
    struct flock lock = ByteLock(type, offset);
    int result = 0;
    do {
        result = fcntl(file.get(), F_OFD_SETLKW, &lock);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

// An open file with that byte locked; empty when that failed.
FileDescriptor OpenLocked(short type, off_t offset) {
    FileDescriptor file = OpenLockFile();
    if (file && !WaitForLock(file, type, offset)) {
        Complain("lock on %s: %s", LOCK_FILE, strerror(errno));
        file.reset();
    }
    return file;
}

bool IsInUse(int network) {
    FileDescriptor file = OpenLockFile();
    struct flock lock = ByteLock(F_WRLCK, USE_OFFSET + network);
    return file && fcntl(file.get(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

void NoteActivity() {
    FileDescriptor file = OpenLockFile();
    if (file) {
        futimens(file.get(), nullptr);
    }
}

milliseconds TimeSinceActivity() {
    struct stat status = {};
    timespec now = {};
    if (stat(LOCK_FILE, &status) != 0 || clock_gettime(CLOCK_REALTIME, &now) != 0) {
        return QUIET_TIME;
    }
    auto age = std::chrono::seconds(now.tv_sec - status.st_mtim.tv_sec) +
               std::chrono::nanoseconds(now.tv_nsec - status.st_mtim.tv_nsec);
    return std::chrono::duration_cast<milliseconds>(age);
}

void WaitForQuiet() {
    Clock::time_point limit = Clock::now() + QUIET_LIMIT;
    while (TimeSinceActivity() < QUIET_TIME && Clock::now() < limit) {
        Pause(static_cast<int>(QUIET_TIME.count()));
    }
}

struct SwitchName {
    explicit SwitchName(int network) { snprintf(text, sizeof text, "zelan-sw%d", network); }
    char text[IFNAMSIZ];
};

// IFLA_BR_FDB_MAX_LEARNED of <linux/if_link.h>, which headers before Linux 6.7 lack; such kernels skip it.
constexpr uint16_t BRIDGE_MAX_LEARNED = 49;
// How many addresses a switch learns: guests invent them, and each takes kernel memory for five minutes.
constexpr uint32_t MAX_LEARNED_ADDRESSES = 4096;

// The switch itself is no endpoint: it answers no ARP and has no IPv6, so that guests reach the host through
// nothing but an interface that was configured for it. Multicast goes to every port, as no querier is at
// hand.
int MakeBridge(RtSocket *socket, const char *name) {
    ifinfomsg header = {};
    header.ifi_flags = IFF_NOARP;
    header.ifi_change = IFF_NOARP;
    RtRequest request(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL, &header, sizeof header);
    request.PutText(IFLA_IFNAME, name);
    request.Put32(IFLA_GROUP, LINK_GROUP_CARRIER);
    size_t linkInfo = request.Open(IFLA_LINKINFO);
    request.PutText(IFLA_INFO_KIND, "bridge");
    size_t data = request.Open(IFLA_INFO_DATA);
    request.Put8(IFLA_BR_MCAST_SNOOPING, 0);
    request.Put32(BRIDGE_MAX_LEARNED, MAX_LEARNED_ADDRESSES);
    request.Close(data);
    request.Close(linkInfo);
    return socket->Do(&request);
}

// Without IPv6 before it is up. False after a line in the log.
bool BringUp(RtSocket *socket, const char *name, int index) {
    if (!Link_ForbidIpv6(name)) {
        return false;
    }
    int error = Link_SetFlags(socket, index, IFF_UP, IFF_UP);
    if (error != 0) {
        Complain("cannot bring %s up: %s", name, strerror(error));
    }
    return error == 0;
}

// Removes what stands under a name that a daemon is about to take. False when it is somebody else's.
bool ClearName(RtSocket *socket, const char *name) {
    Clock::time_point end = Clock::now() + LEFTOVER_TIME;
    for (;;) {
        LinkInfo link;
        if (Link_Find(socket, name, &link) != 0) {
            return true;
        }
        if (!LinkGroup_IsOurs(link.group) || link.kind != "veth") {
            Complain("%s exists already and belongs to somebody else", name);
            return false;
        }
        if (link.group == LINK_GROUP_DEAD) {
            Link_DeleteGroup(socket, LINK_GROUP_DEAD);
        } else if (Clock::now() >= end) {
            Link_Delete(socket, link.index);
        } else {
            Pause(LEFTOVER_POLL_MILLISECONDS);
        }
    }
}

// Removes the switch and says whether nothing more is to be done about it.
bool RemoveOnce(RtSocket *socket, int network) {
    SwitchLock lock(network);
    LinkInfo link;
    if (!lock.held() || Link_Find(socket, SwitchName(network).text, &link) != 0 || IsInUse(network)) {
        return true;
    }
    bool hasPorts = false;
    if (Link_ForEach(socket, link.index, [&hasPorts](const LinkInfo &) { hasPorts = true; }) != 0 ||
        hasPorts) {
        return false;
    }
    if (LinkGroup_IsOurs(link.group) && link.kind == "bridge") {
        Link_Delete(socket, link.index);
    }
    return true;
}

}  // namespace

SwitchLock::SwitchLock(int network) : file_(OpenLocked(F_WRLCK, network)) {}

bool SwitchUse::Begin(int network) {
    file_ = OpenLocked(F_RDLCK, USE_OFFSET + network);
    if (file_) {
        futimens(file_.get(), nullptr);
    }
    return static_cast<bool>(file_);
}

void SwitchUse::KeepAcrossExec() {
    fcntl(file_.get(), F_SETFD, 0);
}

int Switch_Ensure(RtSocket *socket, int network) {
    SwitchName name(network);
    LinkInfo link;
    int error = MakeBridge(socket, name.text);
    if (error == 0 || error == EEXIST) {
        error = Link_Find(socket, name.text, &link);
    }
    if (error != 0) {
        Complain("cannot make the switch %s: %s", name.text, strerror(error));
        return 0;
    }
    if (link.kind != "bridge" || !LinkGroup_IsOurs(link.group)) {
        Complain("%s exists already and belongs to somebody else", name.text);
        return 0;
    }
    return (link.flags & IFF_UP) != 0 || BringUp(socket, name.text, link.index) ? link.index : 0;
}

bool Switch_MakePair(RtSocket *socket, const VethPlan &plan, SwitchPort *port) {
    constexpr int ATTEMPTS = 3;
    int error = Link_MakeVeth(socket, plan);
    for (int attempt = 1; error == EEXIST && attempt < ATTEMPTS; attempt++) {
        if (!ClearName(socket, plan.name) || (plan.peerNamespace < 0 && !ClearName(socket, plan.peerName))) {
            return false;
        }
        error = Link_MakeVeth(socket, plan);
    }
    if (error != 0) {
        Complain("cannot make the interfaces %s and %s: %s", plan.name, plan.peerName, strerror(error));
        return false;
    }
    LinkInfo link;
    error = Link_Find(socket, plan.name, &link);
    port->portIndex = link.index;
    if (error == 0 && plan.peerNamespace < 0) {
        error = Link_Find(socket, plan.peerName, &link);
        port->peerIndex = link.index;
    }
    if (error != 0) {
        Complain("cannot find the interfaces %s and %s: %s", plan.name, plan.peerName, strerror(error));
        return false;
    }
    return (plan.peerNamespace >= 0 || Link_ForbidIpv6(plan.peerName)) &&
           BringUp(socket, plan.name, port->portIndex);
}

bool Switch_MakePort(RtSocket *socket, int network, const char *portName, const char *peerName,
                     int peerNamespace, SwitchPort *port) {
    int master = Switch_Ensure(socket, network);
    uint32_t peerGroup = peerNamespace < 0 ? LINK_GROUP_HOST : LINK_GROUP_CARRIER;
    return master != 0 &&
           Switch_MakePair(socket, {portName, peerName, master, peerNamespace, LINK_GROUP_CARRIER, peerGroup},
                           port);
}

void Switch_RemoveDeadLinks(RtSocket *socket) {
    NoteActivity();
    WaitForQuiet();
    FileDescriptor turn = OpenLocked(F_WRLCK, TURN_OFFSET);
    // ENODEV is the usual answer: another watcher has removed all at once.
    Link_DeleteGroup(socket, LINK_GROUP_DEAD);
}

void Switch_RemoveWhenUnused(RtSocket *socket, int network) {
    for (;;) {
        FileDescriptor turn = OpenLocked(F_WRLCK, TURN_OFFSET);
        Clock::time_point begin = Clock::now();
        bool done = RemoveOnce(socket, network);
        // The kernel's lock on all interfaces was held most of that time: leave others as much of it.
        Pause(static_cast<int>(std::chrono::duration_cast<milliseconds>(Clock::now() - begin).count()));
        turn.reset();
        if (done) {
            return;
        }
        Pause(GUEST_POLL_MILLISECONDS);
    }
}
