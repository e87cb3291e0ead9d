#include <arpa/inet.h>
#include <netinet/ip.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "daemons/common/complain.h"
#include "daemons/zelan-natd/dns.h"

namespace {

// As large as the kernel has it: a byte for a datagram, a number for a connection.
DnsGuest MarkIn(const cmsghdr *part) {
    uint8_t byte = 0;
    int number = 0;
    if (part->cmsg_len >= CMSG_LEN(sizeof number)) {
        memcpy(&number, CMSG_DATA(part), sizeof number);
        return static_cast<DnsGuest>(number);
    }
    memcpy(&byte, CMSG_DATA(part), sizeof byte);
    return byte;
}

}  // namespace

FileDescriptor Dns_Bind(int type, Ipv4 gateway, DnsGuestsBy by) {
    constexpr int BACKLOG = 16;
    int on = by == DnsGuestsBy::PORT ? 1 : 0;
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(DNS_PORT);
    address.sin_addr.s_addr = htonl(gateway);
    FileDescriptor handle(socket(AF_INET, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!handle || setsockopt(handle.get(), IPPROTO_IP, IP_RECVTOS, &on, sizeof on) != 0 ||
        bind(handle.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        (type == SOCK_STREAM && listen(handle.get(), BACKLOG) != 0)) {
        Complain("cannot serve DNS at %s: %s", Ipv4_Text(gateway).c_str(), strerror(errno));
        handle.reset();
    }
    return handle;
}

// A socket that was told to tell the mark always does.
DnsGuest Dns_GuestOf(msghdr *message) {
    for (cmsghdr *part = CMSG_FIRSTHDR(message); part != nullptr; part = CMSG_NXTHDR(message, part)) {
        if (part->cmsg_level == IPPROTO_IP && part->cmsg_type == IP_TOS) {
            return MarkIn(part);
        }
    }
    return ntohl(static_cast<const sockaddr_in *>(message->msg_name)->sin_addr.s_addr);
}

DnsGuest Dns_GuestOf(const FileDescriptor &connection, const sockaddr_in &peer) {
    alignas(cmsghdr) std::array<char, 256> options;
    sockaddr_in address = peer;
    socklen_t size = options.size();
    msghdr message = {};
    message.msg_name = &address;
    if (getsockopt(connection.get(), IPPROTO_IP, IP_PKTOPTIONS, options.data(), &size) == 0) {
        message.msg_control = options.data();
        message.msg_controllen = size;
    }
    return Dns_GuestOf(&message);
}
