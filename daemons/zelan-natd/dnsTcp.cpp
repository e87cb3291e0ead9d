#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "daemons/zelan-natd/dns.h"

namespace {

constexpr size_t MAX_CONNECTIONS = 64;
constexpr std::chrono::seconds IDLE_TIME{20};
// How long a name server has to take a connection.
constexpr std::chrono::seconds CONNECT_TIME{3};

void SendAtOnce(const FileDescriptor &connection) {
    int on = 1;
    setsockopt(connection.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

}  // namespace

bool DnsOverTcp::Listen(Ipv4 gateway) {
    constexpr int BACKLOG = 16;
    listener_ = Dns_Bind(SOCK_STREAM, gateway);
    return listener_ && listen(listener_.get(), BACKLOG) == 0;
}

// An end that has nothing to take or to give is not watched: poll would tell that it has hung up for as long
// as the other end lives.
pollfd DnsOverTcp::WaitFor(const Connection &connection, bool guest) {
    const Stream &in = guest ? connection.up : connection.down;
    const Stream &out = guest ? connection.down : connection.up;
    const int handle = (guest ? connection.guest : connection.server).get();
    if (connection.connecting) {
        return {guest ? -1 : handle, POLLOUT, 0};
    }
    const int events = (in.bytes.empty() && !in.ended ? POLLIN : 0) | (out.bytes.empty() ? 0 : POLLOUT);
    return {events != 0 ? handle : -1, static_cast<short>(events), 0};
}

void DnsOverTcp::Collect(std::vector<pollfd> *waits) const {
    bool full = connections_.size() >= MAX_CONNECTIONS;
    waits->push_back({full ? -1 : listener_.get(), POLLIN, 0});
    for (const Connection &connection : connections_) {
        waits->push_back(WaitFor(connection, true));
        waits->push_back(WaitFor(connection, false));
    }
}

DnsClock::time_point DnsOverTcp::Deadline() const {
    DnsClock::time_point first = DnsClock::time_point::max();
    for (const Connection &connection : connections_) {
        first = std::min(first, connection.deadline);
    }
    return first;
}

void DnsOverTcp::Serve(std::span<const pollfd> waits, DnsClock::time_point now, NameServers *servers) {
    for (size_t i = 0; i < connections_.size(); i++) {
        Connection &connection = connections_[i];
        if (waits[2 * i + 1].revents != 0 || waits[2 * i + 2].revents != 0) {
            Advance(&connection, servers);
            connection.deadline = now + (connection.connecting ? CONNECT_TIME : IDLE_TIME);
        } else if (connection.deadline <= now && connection.connecting) {
            connection.deadline = now + CONNECT_TIME;
            Connect(&connection, servers);
        } else if (connection.deadline <= now) {
            connection.over = true;
        }
    }
    std::erase_if(connections_, [](const Connection &connection) { return connection.over; });
    if (waits[0].revents != 0) {
        Accept(now, servers);
    }
}

void DnsOverTcp::Accept(DnsClock::time_point now, NameServers *servers) {
    Connection connection;
    connection.guest.reset(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!connection.guest) {
        return;
    }
    SendAtOnce(connection.guest);
    connection.deadline = now + CONNECT_TIME;
    Connect(&connection, servers);
    if (!connection.over) {
        connections_.push_back(std::move(connection));
    }
}

// Turns to the next name server that can be tried; without one the guest's connection is over.
void DnsOverTcp::Connect(Connection *connection, NameServers *servers) {
    const std::vector<NameServer> &list = servers->Current();
    while (connection->next < list.size()) {
        const NameServer &server = list[connection->next++];
        connection->server.reset(
            socket(server.address.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        if (connection->server &&
            (connect(connection->server.get(), reinterpret_cast<const sockaddr *>(&server.address),
                     server.size) == 0 ||
             errno == EINPROGRESS)) {
            SendAtOnce(connection->server);
            return;
        }
    }
    connection->over = true;
}

void DnsOverTcp::Advance(Connection *connection, NameServers *servers) {
    if (connection->connecting) {
        int error = 0;
        socklen_t size = sizeof error;
        pollfd server = {connection->server.get(), POLLOUT, 0};
        if (poll(&server, 1, 0) == 0) {
            return;
        }
        getsockopt(connection->server.get(), SOL_SOCKET, SO_ERROR, &error, &size);
        if (error != 0) {
            Connect(connection, servers);
            return;
        }
        connection->connecting = false;
    }
    bool alive = Move(connection->guest.get(), connection->server.get(), &connection->up) &&
                 Move(connection->server.get(), connection->guest.get(), &connection->down);
    connection->over = !alive || (connection->up.closed && connection->down.closed);
}

// Moves what there is without waiting. False when one of the ends has failed.
bool DnsOverTcp::Move(int from, int to, Stream *stream) {
    std::array<char, 16384> block;
    if (stream->bytes.empty() && !stream->ended) {
        ssize_t size = recv(from, block.data(), block.size(), 0);
        if (size < 0) {
            return errno == EAGAIN || errno == EINTR;
        }
        stream->ended = size == 0;
        stream->bytes.assign(block.data(), static_cast<size_t>(size));
    }
    if (!stream->bytes.empty()) {
        ssize_t size = send(to, stream->bytes.data(), stream->bytes.size(), MSG_NOSIGNAL);
        if (size < 0) {
            return errno == EAGAIN || errno == EINTR;
        }
        stream->bytes.erase(0, static_cast<size_t>(size));
    }
    if (stream->bytes.empty() && stream->ended && !stream->closed) {
        shutdown(to, SHUT_WR);
        stream->closed = true;
    }
    return true;
}
