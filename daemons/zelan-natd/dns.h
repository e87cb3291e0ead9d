// DNS for the guests: what they ask at the gateway's address goes to the host's name servers.
//
// The listening sockets are of the router's namespace, those towards the name servers of the host's, so that
// a name server on the host's own loopback serves the guests too. What may pass is in dnsMessage.h. One guest
// alone fills neither: see the limits for each.
#pragma once

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "daemons/common/ipv4.h"
#include "daemons/zelan-natd/nameServers.h"
#include "lib/misc/owners.h"

using DnsClock = std::chrono::steady_clock;

// A guest, as limits tell it: by the port of the switch that it is attached to, where the switch marks
// questions with that, for a guest may send under any address; else by its address.
using DnsGuest = uint32_t;
enum class DnsGuestsBy : uint8_t { ADDRESS, PORT };

// A socket of the current namespace on the gateway's DNS port, of the type SOCK_DGRAM or SOCK_STREAM and
// non-blocking; one of the latter listens. Empty after a line in the log.
FileDescriptor Dns_Bind(int type, Ipv4 gateway, DnsGuestsBy by);

// Who has sent what such a socket has received, or is at the other end of a connection: by the control
// messages of the one, and the options of the other.
DnsGuest Dns_GuestOf(msghdr *message);
DnsGuest Dns_GuestOf(const FileDescriptor &connection, const sockaddr_in &peer);

// Passes single messages on. A name server that does not answer makes room for the next one.
class DnsOverUdp {
  public:
    // Call in the router's namespace. False after a line in the log.
    bool Listen(Ipv4 gateway, DnsGuestsBy by);

    // Adds what to poll for; Serve gets the same entries with what has happened, in the same order.
    void Collect(std::vector<pollfd> *waits) const;
    void Serve(std::span<const pollfd> waits, DnsClock::time_point now, NameServers *servers);

    // When Serve has to be called at the latest.
    DnsClock::time_point Deadline() const;

  private:
    struct Query {
        DnsGuest sender = 0;
        sockaddr_in guest = {};
        std::string message;
        size_t server = 0;  // place in the list of the one that is asked
        DnsClock::time_point deadline;
        FileDescriptor socket;  // empty when the query is over
    };

    void TakeQueries(DnsClock::time_point now, NameServers *servers);
    void Take(Query query, DnsClock::time_point now, NameServers *servers);
    void TakeAnswer(Query *query, DnsClock::time_point now, NameServers *servers);
    void Ask(Query *query, DnsClock::time_point now, NameServers *servers);
    void Reply(const Query &query, const std::string &message) const;

    FileDescriptor listener_;
    std::vector<Query> queries_;
};

// Takes messages from the guests' connections one after the other, each of which is passed on by a connection
// of its own.
class DnsOverTcp {
  public:
    bool Listen(Ipv4 gateway, DnsGuestsBy by);
    void Collect(std::vector<pollfd> *waits) const;
    void Serve(std::span<const pollfd> waits, DnsClock::time_point now, NameServers *servers);
    DnsClock::time_point Deadline() const;

  private:
    // What is done, in this order; each step waits for one socket alone.
    enum class Step : uint8_t { TAKE_QUESTION, ASK, TAKE_ANSWER, REPLY, OVER };
    struct Connection {
        DnsGuest sender = 0;
        FileDescriptor guest;
        FileDescriptor server;
        Step step = Step::TAKE_QUESTION;
        DnsClock::time_point deadline;  // of the step: single bytes do not renew it
        std::string question;           // with its length before it, as it travels
        std::string bytes;              // of the message that is taken or sent, so far or still
        size_t next = 0;                // place in the list of the server to try next
    };

    void Accept(DnsClock::time_point now);
    static pollfd WaitFor(const Connection &connection);
    static void Enter(Connection *connection, Step step, DnsClock::time_point now);
    static void Advance(Connection *connection, DnsClock::time_point now, NameServers *servers);
    static void TakeQuestion(Connection *connection, DnsClock::time_point now, NameServers *servers);
    static void TryServer(Connection *connection, DnsClock::time_point now, NameServers *servers);
    static void Ask(Connection *connection, DnsClock::time_point now, NameServers *servers);
    static void TakeAnswer(Connection *connection, DnsClock::time_point now, NameServers *servers);
    static void Reply(Connection *connection, const std::string &message, DnsClock::time_point now);
    static void SendReply(Connection *connection, DnsClock::time_point now);

    FileDescriptor listener_;
    std::vector<Connection> connections_;
};
