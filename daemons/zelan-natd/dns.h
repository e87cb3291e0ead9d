// DNS for the guests: what they ask at the gateway's address goes to the host's name servers.
//
// The listening sockets are of the router's namespace, those towards the name servers of the host's, so that
// a name server on the host's own loopback serves the guests too. Nothing is understood of a message but its
// number and its flags.
#pragma once

#include <netinet/in.h>
#include <poll.h>

#include <chrono>
#include <span>
#include <string>
#include <vector>

#include "daemons/common/ipv4.h"
#include "daemons/zelan-natd/nameServers.h"
#include "lib/misc/owners.h"

using DnsClock = std::chrono::steady_clock;

// A socket of the current namespace on the gateway's DNS port, of the type SOCK_DGRAM or SOCK_STREAM and
// non-blocking. Empty after a line in the log.
FileDescriptor Dns_Bind(int type, Ipv4 gateway);

// Passes single messages on. A name server that does not answer makes room for the next one.
class DnsOverUdp {
  public:
    // Call in the router's namespace. False after a line in the log.
    bool Listen(Ipv4 gateway);

    // Adds what to poll for; Serve gets the same entries with what has happened, in the same order.
    void Collect(std::vector<pollfd> *waits) const;
    void Serve(std::span<const pollfd> waits, DnsClock::time_point now, NameServers *servers);

    // When Serve has to be called at the latest.
    DnsClock::time_point Deadline() const;

  private:
    struct Query {
        sockaddr_in guest = {};
        std::string message;
        size_t server = 0;  // place in the list of the one that is asked
        DnsClock::time_point deadline;
        FileDescriptor socket;  // empty when the query is over
    };

    void TakeQueries(DnsClock::time_point now, NameServers *servers);
    void TakeAnswer(Query *query, DnsClock::time_point now, NameServers *servers);
    void Ask(Query *query, DnsClock::time_point now, NameServers *servers);
    void Reply(const Query &query, const char *message, size_t size) const;
    void ReplyFailure(const Query &query) const;

    FileDescriptor listener_;
    std::vector<Query> queries_;
};

// Passes the bytes of connections on, both ways.
class DnsOverTcp {
  public:
    bool Listen(Ipv4 gateway);
    void Collect(std::vector<pollfd> *waits) const;
    void Serve(std::span<const pollfd> waits, DnsClock::time_point now, NameServers *servers);
    DnsClock::time_point Deadline() const;

  private:
    // One direction: bytes that were read and wait to be written.
    struct Stream {
        std::string bytes;
        bool ended = false;   // nothing more comes
        bool closed = false;  // and the receiver has been told so
    };
    struct Connection {
        FileDescriptor guest;
        FileDescriptor server;
        bool connecting = true;
        size_t next = 0;  // place in the list of the server to try next
        Stream up;
        Stream down;
        DnsClock::time_point deadline;
        bool over = false;
    };

    void Accept(DnsClock::time_point now, NameServers *servers);
    static void Connect(Connection *connection, NameServers *servers);
    static void Advance(Connection *connection, NameServers *servers);
    static bool Move(int from, int to, Stream *stream);
    static pollfd WaitFor(const Connection &connection, bool guest);

    FileDescriptor listener_;
    std::vector<Connection> connections_;
};
