#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "daemons/common/complain.h"
#include "daemons/zelan-natd/dns.h"

namespace {

// The parts of a message's header that matter here.
constexpr size_t HEADER_SIZE = 12;
constexpr size_t NUMBER_SIZE = 2;
constexpr size_t FLAGS_OFFSET = 2;
constexpr unsigned char IS_ANSWER = 0x80;
constexpr size_t RESULT_OFFSET = 3;
constexpr unsigned char RESULT_MASK = 0x0f;
constexpr unsigned char SERVER_FAILURE = 2;

constexpr std::chrono::seconds PATIENCE{2};
constexpr size_t MAX_QUERIES = 256;
constexpr int QUERIES_PER_TURN = 64;

using Message = std::array<char, 65536>;

bool IsQuery(const char *message, ssize_t size) {
    return size >= static_cast<ssize_t>(HEADER_SIZE) &&
           (static_cast<unsigned char>(message[FLAGS_OFFSET]) & IS_ANSWER) == 0;
}

}  // namespace

FileDescriptor Dns_Bind(int type, Ipv4 gateway) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(DNS_PORT);
    address.sin_addr.s_addr = htonl(gateway);
    FileDescriptor handle(socket(AF_INET, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!handle || bind(handle.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        Complain("cannot serve DNS at %s: %s", Ipv4_Text(gateway).c_str(), strerror(errno));
        handle.reset();
    }
    return handle;
}

bool DnsOverUdp::Listen(Ipv4 gateway) {
    listener_ = Dns_Bind(SOCK_DGRAM, gateway);
    return static_cast<bool>(listener_);
}

void DnsOverUdp::Collect(std::vector<pollfd> *waits) const {
    waits->push_back({listener_.get(), POLLIN, 0});
    for (const Query &query : queries_) {
        waits->push_back({query.socket.get(), POLLIN, 0});
    }
}

DnsClock::time_point DnsOverUdp::Deadline() const {
    DnsClock::time_point first = DnsClock::time_point::max();
    for (const Query &query : queries_) {
        first = std::min(first, query.deadline);
    }
    return first;
}

void DnsOverUdp::Serve(std::span<const pollfd> waits, DnsClock::time_point now, NameServers *servers) {
    for (size_t i = 0; i < queries_.size(); i++) {
        Query &query = queries_[i];
        if (waits[i + 1].revents != 0) {
            TakeAnswer(&query, now, servers);
        } else if (query.deadline <= now) {
            query.server++;
            Ask(&query, now, servers);
        }
    }
    std::erase_if(queries_, [](const Query &query) { return !query.socket; });
    if (waits[0].revents != 0) {
        TakeQueries(now, servers);
    }
}

void DnsOverUdp::TakeQueries(DnsClock::time_point now, NameServers *servers) {
    Message message;
    for (int taken = 0; taken < QUERIES_PER_TURN; taken++) {
        Query query;
        socklen_t size = sizeof query.guest;
        ssize_t length = recvfrom(listener_.get(), message.data(), message.size(), 0,
                                  reinterpret_cast<sockaddr *>(&query.guest), &size);
        if (length < 0) {
            return;
        }
        // Beyond the limit guests have to ask again.
        if (!IsQuery(message.data(), length) || queries_.size() >= MAX_QUERIES) {
            continue;
        }
        query.message.assign(message.data(), static_cast<size_t>(length));
        Ask(&query, now, servers);
        if (query.socket) {
            queries_.push_back(std::move(query));
        }
    }
}

// Each query has a socket of its own, connected to the server: a port that nobody can guess, and no answer
// from anybody else.
void DnsOverUdp::Ask(Query *query, DnsClock::time_point now, NameServers *servers) {
    const std::vector<NameServer> &list = servers->Current();
    for (; query->server < list.size(); query->server++) {
        const NameServer &server = list[query->server];
        query->socket.reset(socket(server.address.ss_family, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        int handle = query->socket.get();
        if (handle >= 0 &&
            connect(handle, reinterpret_cast<const sockaddr *>(&server.address), server.size) == 0 &&
            send(handle, query->message.data(), query->message.size(), 0) >= 0) {
            query->deadline = now + PATIENCE;
            return;
        }
    }
    query->socket.reset();
    ReplyFailure(*query);
}

void DnsOverUdp::TakeAnswer(Query *query, DnsClock::time_point now, NameServers *servers) {
    Message message;
    ssize_t length = recv(query->socket.get(), message.data(), message.size(), 0);
    if (length < 0 && (errno == EAGAIN || errno == EINTR)) {
        return;
    }
    if (length < 0) {
        query->server++;
        Ask(query, now, servers);
    } else if (length >= static_cast<ssize_t>(HEADER_SIZE) &&
               memcmp(message.data(), query->message.data(), NUMBER_SIZE) == 0) {
        Reply(*query, message.data(), static_cast<size_t>(length));
        query->socket.reset();
    }
}

void DnsOverUdp::Reply(const Query &query, const char *message, size_t size) const {
    sendto(listener_.get(), message, size, 0, reinterpret_cast<const sockaddr *>(&query.guest),
           sizeof query.guest);
}

void DnsOverUdp::ReplyFailure(const Query &query) const {
    std::string message = query.message;
    auto *header = reinterpret_cast<unsigned char *>(message.data());
    header[FLAGS_OFFSET] |= IS_ANSWER;
    header[RESULT_OFFSET] =
        static_cast<unsigned char>((header[RESULT_OFFSET] & ~RESULT_MASK) | SERVER_FAILURE);
    Reply(query, message.data(), message.size());
}
