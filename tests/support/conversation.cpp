#include "tests/support/conversation.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/eventfd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace {

sockaddr_in SocketAddress(const Endpoint &endpoint) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(endpoint.port));
    inet_pton(AF_INET, endpoint.address.c_str(), &address.sin_addr);
    return address;
}

std::string Dotted(const sockaddr_in &address) {
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
    return text;
}

bool WaitFor(short event, int descriptor, std::chrono::milliseconds deadline) {
    pollfd wait = {descriptor, event, 0};
    return poll(&wait, 1, static_cast<int>(deadline.count() * HARBREL_TEST_PATIENCE)) > 0;
}

}  // namespace

FileDescriptor SocketOn(const Machine *machine, int type, int family, int protocol) {
    FileDescriptor home(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC));
    if (machine != nullptr) {
        FileDescriptor there(open(("/var/run/netns/" + machine->name()).c_str(), O_RDONLY | O_CLOEXEC));
        EXPECT_EQ(0, setns(there.get(), CLONE_NEWNET)) << strerror(errno);
    }
    FileDescriptor made(socket(family, type | SOCK_CLOEXEC, protocol));
    EXPECT_TRUE(made) << strerror(errno);
    EXPECT_EQ(0, setns(home.get(), CLONE_NEWNET)) << strerror(errno);
    return made;
}

FileDescriptor SocketUnder(const Machine *machine, int type, const Endpoint &own) {
    FileDescriptor made = SocketOn(machine, type);
    const sockaddr_in address = SocketAddress(own);
    EXPECT_EQ(0, bind(made.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address))
        << own.address;
    return made;
}

void Connect(const FileDescriptor &socket, const Endpoint &server) {
    const sockaddr_in address = SocketAddress(server);
    connect(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
}

std::string ReceiveOnce(const FileDescriptor &socket, std::chrono::milliseconds deadline) {
    std::array<char, 65536> block;
    ssize_t size =
        WaitFor(POLLIN, socket.get(), deadline) ? recv(socket.get(), block.data(), block.size(), 0) : 0;
    return size > 0 ? std::string(block.data(), static_cast<size_t>(size)) : "";
}

void SendTo(const FileDescriptor &socket, const Endpoint &to, const std::string &message) {
    const sockaddr_in address = SocketAddress(to);
    sendto(socket.get(), message.data(), message.size(), 0, reinterpret_cast<const sockaddr *>(&address),
           sizeof address);
}

std::string Exchange(const Machine *machine, int type, const Endpoint &server, const std::string &request,
                     std::chrono::milliseconds deadline) {
    const FileDescriptor client = SocketOn(machine, type | SOCK_NONBLOCK);
    Connect(client, server);
    if (!WaitFor(POLLOUT, client.get(), deadline) ||
        send(client.get(), request.data(), request.size(), MSG_NOSIGNAL) < 0) {
        return "";
    }
    return ReceiveOnce(client, deadline);
}

Responder::Responder(const Machine *machine, int type, const Endpoint &endpoint, Answer answer)
    : socket_(SocketOn(machine, type)),
      stop_(eventfd(0, EFD_CLOEXEC)),
      type_(type),
      answer_(std::move(answer)) {
    constexpr int BACKLOG = 16;
    const sockaddr_in address = SocketAddress(endpoint);
    int on = 1;
    setsockopt(socket_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    EXPECT_EQ(0, bind(socket_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address))
        << endpoint.address << ":" << endpoint.port << ": " << strerror(errno);
    EXPECT_TRUE(type != SOCK_STREAM || listen(socket_.get(), BACKLOG) == 0);
    thread_ = std::thread([this] { Run(); });
}

Responder::~Responder() {
    eventfd_write(stop_.get(), 1);
    thread_.join();
}

void Responder::Run() {
    std::array<pollfd, 2> waits = {{{stop_.get(), POLLIN, 0}, {socket_.get(), POLLIN, 0}}};
    while (poll(waits.data(), waits.size(), -1) > 0 && waits[0].revents == 0) {
        if (type_ == SOCK_STREAM) {
            ServeConnection();
        } else {
            ServeMessage();
        }
    }
}

void Responder::ServeConnection() {
    sockaddr_in peer = {};
    socklen_t size = sizeof peer;
    FileDescriptor connection(accept(socket_.get(), reinterpret_cast<sockaddr *>(&peer), &size));
    std::string request;
    while (connection && !(request = ReceiveOnce(connection)).empty()) {
        std::string reply = answer_(request, Dotted(peer));
        send(connection.get(), reply.data(), reply.size(), MSG_NOSIGNAL);
    }
}

void Responder::ServeMessage() {
    std::array<char, 65536> block;
    sockaddr_in peer = {};
    socklen_t size = sizeof peer;
    ssize_t length =
        recvfrom(socket_.get(), block.data(), block.size(), 0, reinterpret_cast<sockaddr *>(&peer), &size);
    if (length >= 0) {
        std::string reply = answer_(std::string(block.data(), static_cast<size_t>(length)), Dotted(peer));
        sendto(socket_.get(), reply.data(), reply.size(), 0, reinterpret_cast<sockaddr *>(&peer), size);
    }
}
