#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "daemons/zelan-natd/dns.h"
#include "daemons/zelan-natd/dnsMessage.h"
#include "daemons/zelan-natd/dnsShare.h"

namespace {

constexpr size_t MAX_CONNECTIONS = 64;
// One more costs the guest its oldest.
constexpr size_t MAX_CONNECTIONS_OF_ONE = 4;
constexpr std::chrono::seconds IDLE_TIME{20};
// How long a name server has to take a connection and the question.
constexpr std::chrono::seconds ASK_TIME{3};
// How long the name server has to answer, and the guest to take that.
constexpr std::chrono::seconds TRANSFER_TIME{5};

// No question is nearly as long as a message may be.
constexpr size_t MAX_QUESTION = 4096;

std::string WithLength(const std::string &message) {
    return std::string({static_cast<char>(message.size() >> 8), static_cast<char>(message.size())}) + message;
}

enum class Transfer : uint8_t { UNFINISHED, DONE, FAILED };

Transfer AfterFailure() {
    return errno == EAGAIN || errno == EINTR ? Transfer::UNFINISHED : Transfer::FAILED;
}

// Takes what there is of one message, and nothing of the next.
Transfer TakeMessage(const FileDescriptor &from, std::string *bytes) {
    std::array<char, 16384> block;
    while (bytes->size() < DnsMessage_SizeOnStream(*bytes)) {
        size_t missing = std::min(block.size(), DnsMessage_SizeOnStream(*bytes) - bytes->size());
        ssize_t size = recv(from.get(), block.data(), missing, 0);
        if (size <= 0) {
            return size < 0 ? AfterFailure() : Transfer::FAILED;
        }
        bytes->append(block.data(), static_cast<size_t>(size));
    }
    return Transfer::DONE;
}

Transfer SendMessage(const FileDescriptor &to, std::string *bytes) {
    while (!bytes->empty()) {
        ssize_t size = send(to.get(), bytes->data(), bytes->size(), MSG_NOSIGNAL);
        if (size < 0) {
            return AfterFailure();
        }
        bytes->erase(0, static_cast<size_t>(size));
    }
    return Transfer::DONE;
}

}  // namespace

bool DnsOverTcp::Listen(Ipv4 gateway, DnsGuestsBy by) {
    listener_ = Dns_Bind(SOCK_STREAM, gateway, by);
    return static_cast<bool>(listener_);
}

pollfd DnsOverTcp::WaitFor(const Connection &connection) {
    switch (connection.step) {
        case Step::TAKE_QUESTION:
            return {connection.guest.get(), POLLIN, 0};
        case Step::ASK:
            return {connection.server.get(), POLLOUT, 0};
        case Step::TAKE_ANSWER:
            return {connection.server.get(), POLLIN, 0};
        case Step::REPLY:
            return {connection.guest.get(), POLLOUT, 0};
        case Step::OVER:
            break;
    }
    return {-1, 0, 0};
}

void DnsOverTcp::Collect(std::vector<pollfd> *waits) const {
    waits->push_back({listener_.get(), POLLIN, 0});
    for (const Connection &connection : connections_) {
        waits->push_back(WaitFor(connection));
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
        bool withServer = connection.step == Step::ASK || connection.step == Step::TAKE_ANSWER;
        if (waits[i + 1].revents != 0) {
            Advance(&connection, now, servers);
        } else if (connection.deadline <= now && withServer) {
            TryServer(&connection, now, servers);
        } else if (connection.deadline <= now) {
            connection.step = Step::OVER;
        }
    }
    std::erase_if(connections_, [](const Connection &connection) { return connection.step == Step::OVER; });
    if (waits[0].revents != 0) {
        Accept(now);
    }
}

// Where all are taken, the guest with the most of them loses one.
void DnsOverTcp::Accept(DnsClock::time_point now) {
    Connection connection;
    sockaddr_in guest = {};
    socklen_t size = sizeof guest;
    connection.guest.reset(
        accept4(listener_.get(), reinterpret_cast<sockaddr *>(&guest), &size, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!connection.guest) {
        return;
    }
    connection.sender = Dns_GuestOf(connection.guest, guest);
    DnsLoad load = DnsShare_Count(connections_);
    if (load[connection.sender] >= MAX_CONNECTIONS_OF_ONE) {
        DnsShare_RemoveOldest(&connections_, connection.sender);
    } else if (connections_.size() >= MAX_CONNECTIONS) {
        DnsShare_RemoveOldest(&connections_, DnsShare_Greediest(load));
    }
    Enter(&connection, Step::TAKE_QUESTION, now);
    connections_.push_back(std::move(connection));
}

void DnsOverTcp::Enter(Connection *connection, Step step, DnsClock::time_point now) {
    connection->step = step;
    connection->deadline = now + (step == Step::TAKE_QUESTION ? IDLE_TIME
                                  : step == Step::ASK         ? ASK_TIME
                                                              : TRANSFER_TIME);
}

void DnsOverTcp::Advance(Connection *connection, DnsClock::time_point now, NameServers *servers) {
    switch (connection->step) {
        case Step::TAKE_QUESTION:
            TakeQuestion(connection, now, servers);
            break;
        case Step::ASK:
            Ask(connection, now, servers);
            break;
        case Step::TAKE_ANSWER:
            TakeAnswer(connection, now, servers);
            break;
        case Step::REPLY:
            SendReply(connection, now);
            break;
        case Step::OVER:
            break;
    }
}

void DnsOverTcp::TakeQuestion(Connection *connection, DnsClock::time_point now, NameServers *servers) {
    Transfer transfer = TakeMessage(connection->guest, &connection->bytes);
    if (transfer == Transfer::FAILED ||
        DnsMessage_SizeOnStream(connection->bytes) > DNS_LENGTH_SIZE + MAX_QUESTION) {
        connection->step = Step::OVER;
    }
    if (transfer != Transfer::DONE || connection->step == Step::OVER) {
        return;
    }
    connection->question = connection->bytes.substr(DNS_LENGTH_SIZE);
    DnsVerdict verdict = DnsMessage_Judge(connection->question);
    if (verdict == DnsVerdict::PASS_ON) {
        connection->next = 0;
        TryServer(connection, now, servers);
    } else if (verdict == DnsVerdict::IGNORE) {
        connection->step = Step::OVER;
    } else {
        Reply(connection, DnsMessage_Answer(connection->question, verdict), now);
    }
}

// Turns to the next name server that can be tried; without one the guest is told so.
void DnsOverTcp::TryServer(Connection *connection, DnsClock::time_point now, NameServers *servers) {
    const std::vector<NameServer> &list = servers->Current();
    while (connection->next < list.size()) {
        const NameServer &server = list[connection->next++];
        connection->server.reset(
            socket(server.address.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        if (connection->server &&
            (connect(connection->server.get(), reinterpret_cast<const sockaddr *>(&server.address),
                     server.size) == 0 ||
             errno == EINPROGRESS)) {
            connection->bytes = WithLength(connection->question);
            Enter(connection, Step::ASK, now);
            return;
        }
    }
    Reply(connection, DnsMessage_Answer(connection->question, DnsVerdict::SERVER_FAILURE), now);
}

void DnsOverTcp::Ask(Connection *connection, DnsClock::time_point now, NameServers *servers) {
    Transfer transfer = SendMessage(connection->server, &connection->bytes);
    if (transfer == Transfer::FAILED) {
        TryServer(connection, now, servers);
    } else if (transfer == Transfer::DONE) {
        Enter(connection, Step::TAKE_ANSWER, now);
    }
}

void DnsOverTcp::TakeAnswer(Connection *connection, DnsClock::time_point now, NameServers *servers) {
    Transfer transfer = TakeMessage(connection->server, &connection->bytes);
    if (transfer == Transfer::UNFINISHED) {
        return;
    }
    std::string answer = transfer == Transfer::DONE ? connection->bytes.substr(DNS_LENGTH_SIZE) : "";
    if (DnsMessage_IsAnswerTo(answer, connection->question)) {
        Reply(connection, answer, now);
    } else {
        TryServer(connection, now, servers);
    }
}

void DnsOverTcp::Reply(Connection *connection, const std::string &message, DnsClock::time_point now) {
    connection->server.reset();
    connection->bytes = WithLength(message);
    Enter(connection, Step::REPLY, now);
}

void DnsOverTcp::SendReply(Connection *connection, DnsClock::time_point now) {
    Transfer transfer = SendMessage(connection->guest, &connection->bytes);
    if (transfer == Transfer::FAILED) {
        connection->step = Step::OVER;
    } else if (transfer == Transfer::DONE) {
        Enter(connection, Step::TAKE_QUESTION, now);
    }
}
