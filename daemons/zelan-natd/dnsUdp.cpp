#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "daemons/common/complain.h"
#include "daemons/zelan-natd/dns.h"
#include "daemons/zelan-natd/dnsMessage.h"
#include "daemons/zelan-natd/dnsShare.h"

namespace {

constexpr std::chrono::seconds PATIENCE{2};
constexpr size_t MAX_QUERIES = 256;
// A guest that has as many under way has to ask again.
constexpr size_t MAX_QUERIES_OF_ONE = 32;
constexpr int QUERIES_PER_TURN = 64;

using Message = std::array<char, 65536>;

}  // namespace

bool DnsOverUdp::Listen(Ipv4 gateway, DnsGuestsBy by) {
    listener_ = Dns_Bind(SOCK_DGRAM, gateway, by);
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
        alignas(cmsghdr) std::array<char, 64> control;
        iovec content = {message.data(), message.size()};
        msghdr received = {};
        received.msg_name = &query.guest;
        received.msg_namelen = sizeof query.guest;
        received.msg_iov = &content;
        received.msg_iovlen = 1;
        received.msg_control = control.data();
        received.msg_controllen = control.size();
        ssize_t length = recvmsg(listener_.get(), &received, 0);
        if (length < 0) {
            return;
        }
        query.sender = Dns_GuestOf(&received);
        query.message.assign(message.data(), static_cast<size_t>(length));
        DnsVerdict verdict = DnsMessage_Judge(query.message);
        if (verdict == DnsVerdict::PASS_ON) {
            Take(std::move(query), now, servers);
        } else if (verdict != DnsVerdict::IGNORE) {
            Reply(query, DnsMessage_Answer(query.message, verdict));
        }
    }
}

// Where all are taken, the guest with the most of them gives one up.
void DnsOverUdp::Take(Query query, DnsClock::time_point now, NameServers *servers) {
    DnsLoad load = DnsShare_Count(queries_);
    if (load[query.sender] >= MAX_QUERIES_OF_ONE) {
        return;
    }
    if (queries_.size() >= MAX_QUERIES) {
        DnsShare_RemoveOldest(&queries_, DnsShare_Greediest(load));
    }
    Ask(&query, now, servers);
    if (query.socket) {
        queries_.push_back(std::move(query));
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
    Reply(*query, DnsMessage_Answer(query->message, DnsVerdict::SERVER_FAILURE));
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
        return;
    }
    std::string_view answer(message.data(), static_cast<size_t>(length));
    if (DnsMessage_IsAnswerTo(answer, query->message)) {
        Reply(*query, std::string(answer));
        query->socket.reset();
    }
}

void DnsOverUdp::Reply(const Query &query, const std::string &message) const {
    sendto(listener_.get(), message.data(), message.size(), 0,
           reinterpret_cast<const sockaddr *>(&query.guest), sizeof query.guest);
}
