// Servers and clients of the test program whose sockets are made in the machines' namespaces.
#pragma once

#include <sys/socket.h>

#include <functional>
#include <string>
#include <thread>

#include "lib/misc/owners.h"
#include "tests/support/netns.h"

struct Endpoint {
    std::string address;  // dotted
    int port = 0;
};

// A socket in the namespace of a machine, or of the host with null. One that cannot be made fails the test.
FileDescriptor SocketOn(const Machine *machine, int type, int family = AF_INET, int protocol = 0);

// The same, which speaks under that address.
FileDescriptor SocketUnder(const Machine *machine, int type, const Endpoint &own);

// Puts a socket on its way to the server.
void Connect(const FileDescriptor &socket, const Endpoint &server);

// Sends one message by a socket for messages.
void SendTo(const FileDescriptor &socket, const Endpoint &to, const std::string &message);

// What comes first, within the deadline; empty when nothing does.
std::string ReceiveOnce(const FileDescriptor &socket,
                        std::chrono::milliseconds deadline = CONDITION_DEADLINE);

// Sends a request and returns what comes back first within the deadline; empty when nothing does.
std::string Exchange(const Machine *machine, int type, const Endpoint &server, const std::string &request,
                     std::chrono::milliseconds deadline = CONDITION_DEADLINE);

// Answers every request until it is destroyed.
class Responder {
  public:
    // `answer` gets the request and the dotted address that it came from; it runs in a thread of its own.
    using Answer = std::function<std::string(const std::string &request, const std::string &peer)>;

    Responder(const Machine *machine, int type, const Endpoint &endpoint, Answer answer);
    ~Responder();
    Responder(Responder &&) = delete;

  private:
    void Run();
    void ServeConnection();
    void ServeMessage();

    FileDescriptor socket_;
    FileDescriptor stop_;
    int type_;
    Answer answer_;
    std::thread thread_;
};
