#include "daemons/zelan-natd/hostPorts.h"

#include <poll.h>
#include <sys/resource.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "daemons/common/complain.h"
#include "daemons/firewall/hostPort.h"
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

// With patience for a predecessor that is still dying.
FileDescriptor HoldUntil(const HostPort &port, Clock::time_point end) {
    constexpr int POLL_MILLISECONDS = 5;
    FileDescriptor handle = HostPort_Hold(port);
    while (!handle && errno == EADDRINUSE && Clock::now() < end) {
        poll(nullptr, 0, POLL_MILLISECONDS);
        handle = HostPort_Hold(port);
    }
    return handle;
}

// What to do about a port that another program has: whether all but its addresses can be forwarded.
bool Share(const HostPort &port, HostPorts *ports) {
    HostListeners listeners = HostListeners_Of(port);
    for (Ipv4 address : listeners.addresses) {
        if (!listeners.everywhere) {
            Complain("%s port %u of %s is not forwarded: another program has it", HostPort_Protocol(port),
                     port.port, Ipv4_Text(address).c_str());
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
        const HostPort port = {forward.tcp, forward.hostPort};
        if (!conf.subnet().HasHost(forward.guest)) {
            Complain("%s port %u is not forwarded: %s is no address of the network", HostPort_Protocol(port),
                     port.port, Ipv4_Text(forward.guest).c_str());
            continue;
        }
        errno = EMFILE;
        FileDescriptor handle = ports.sockets.size() < most ? HoldUntil(port, end) : FileDescriptor();
        int error = handle ? 0 : errno;
        if (error != 0 && (error != EADDRINUSE || !Share(port, &ports))) {
            Complain("%s port %u is not forwarded to %s: %s", HostPort_Protocol(port), port.port,
                     Ipv4_Text(forward.guest).c_str(), strerror(error));
            if (error == EADDRINUSE && port.port >= FIRST_UNPRIVILEGED_PORT) {
                ports.awaited.push_back(forward);
            }
            continue;
        }
        if (handle) {
            ports.sockets.push_back(std::move(handle));
        }
        ports.forwards.push_back(forward);
    }
    return ports;
}
