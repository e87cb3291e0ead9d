#include "daemons/zelan-natd/hostPorts.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "daemons/common/complain.h"
#include "daemons/zelan-natd/hostListeners.h"

namespace {

using Clock = std::chrono::steady_clock;

// For all ports together.
constexpr std::chrono::milliseconds PREDECESSOR_TIME{300};

// How many sockets the daemon can hold: a network may have more forwards than a process usually has files.
size_t SocketLimit() {
    // For everything else, DNS above all.
    constexpr rlim_t KEPT_FREE = 512;
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return 0;
    }
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    return limit.rlim_max > KEPT_FREE ? limit.rlim_max - KEPT_FREE : 0;
}

// A socket that holds the port; empty with errno.
FileDescriptor Take(const PortForward &forward) {
    FileDescriptor handle(socket(AF_INET, (forward.tcp ? SOCK_STREAM : SOCK_DGRAM) | SOCK_CLOEXEC, 0));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(forward.hostPort);
    int on = 1;
    // What is left of a server's old connections does not make a port taken.
    bool taken = handle &&
                 (!forward.tcp || setsockopt(handle.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0) &&
                 bind(handle.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 &&
                 (!forward.tcp || listen(handle.get(), 0) == 0);
    if (!taken) {
        handle.reset();
    }
    return handle;
}

// The same with patience for a predecessor that is still dying.
FileDescriptor TakeUntil(const PortForward &forward, Clock::time_point end) {
    constexpr int POLL_MILLISECONDS = 5;
    FileDescriptor handle = Take(forward);
    while (!handle && errno == EADDRINUSE && Clock::now() < end) {
        poll(nullptr, 0, POLL_MILLISECONDS);
        handle = Take(forward);
    }
    return handle;
}

// What to do about a port that another program has: whether all but its addresses can be forwarded.
bool Share(const PortForward &forward, HostPorts *ports) {
    const HostPort port = {forward.tcp, forward.hostPort};
    HostListeners listeners = HostListeners_Of(port);
    for (Ipv4 address : listeners.addresses) {
        if (!listeners.everywhere) {
            Complain("%s port %u of %s is not forwarded: another program has it", forward.tcp ? "TCP" : "UDP",
                     forward.hostPort, Ipv4_Text(address).c_str());
            ports->kept.push_back({address, port});
        }
    }
    return !listeners.everywhere;
}

}  // namespace

HostPorts HostPorts_Take(const NatConf &conf) {
    HostPorts ports;
    size_t most = SocketLimit();
    Clock::time_point end = Clock::now() + PREDECESSOR_TIME;
    for (const PortForward &forward : conf.forwards) {
        const char *protocol = forward.tcp ? "TCP" : "UDP";
        if (!conf.subnet().HasHost(forward.guest)) {
            Complain("%s port %u is not forwarded: %s is no address of the network", protocol,
                     forward.hostPort, Ipv4_Text(forward.guest).c_str());
            continue;
        }
        errno = EMFILE;
        FileDescriptor handle = ports.sockets.size() < most ? TakeUntil(forward, end) : FileDescriptor();
        int error = handle ? 0 : errno;
        if (error != 0 && (error != EADDRINUSE || !Share(forward, &ports))) {
            Complain("%s port %u is not forwarded to %s: %s", protocol, forward.hostPort,
                     Ipv4_Text(forward.guest).c_str(), strerror(error));
            continue;
        }
        if (handle) {
            ports.sockets.push_back(std::move(handle));
        }
        ports.forwards.push_back(forward);
    }
    return ports;
}
