#include "daemons/common/rtnetlink.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "daemons/common/complain.h"

namespace {

// A dump comes in pieces of at most this size; a single answer is smaller.
constexpr size_t ANSWER_SIZE = 32768;
// Room for the announcements of hundreds of interfaces that come at once.
constexpr int ANNOUNCEMENT_BYTES = 4 * 1024 * 1024;

using AnswerBuffer = std::array<char, ANSWER_SIZE>;

// The next datagram, waiting for it unless flags say otherwise; its size or a negated errno value.
ssize_t Receive(int descriptor, AnswerBuffer *buffer, int flags) {
    ssize_t size = 0;
    do {
        size = recv(descriptor, buffer->data(), buffer->size(), flags);
    } while (size < 0 && errno == EINTR);
    return size < 0 ? -errno : size;
}

void ForEachMessage(const AnswerBuffer &buffer, ssize_t size,
                    const std::function<void(const nlmsghdr *)> &visit) {
    ssize_t left = size;  // signed: a last message without its padding takes it below 0
    for (auto *message = reinterpret_cast<const nlmsghdr *>(buffer.data()); NLMSG_OK(message, left);
         message = NLMSG_NEXT(message, left)) {
        visit(message);
    }
}

}  // namespace

RtRequest::RtRequest(uint16_t type, uint16_t flags, const void *header, size_t headerSize) {
    message()->nlmsg_type = type;
    message()->nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | flags);
    message()->nlmsg_len = static_cast<uint32_t>(NLMSG_LENGTH(headerSize));
    memcpy(NLMSG_DATA(message()), header, headerSize);
}

void RtRequest::Put(uint16_t type, const void *data, size_t size) {
    size_t place = Open(type);
    Append(data, size);
    Close(place);
}

void RtRequest::PutText(uint16_t type, const char *text) {
    Put(type, text, strlen(text) + 1);
}

void RtRequest::Put32(uint16_t type, uint32_t value) {
    Put(type, &value, sizeof value);
}

void RtRequest::Put8(uint16_t type, uint8_t value) {
    Put(type, &value, sizeof value);
}

void RtRequest::Append(const void *data, size_t size) {
    size_t place = NLMSG_ALIGN(message()->nlmsg_len);
    memcpy(buffer_.data() + place, data, size);
    message()->nlmsg_len = static_cast<uint32_t>(place + size);
}

size_t RtRequest::Open(uint16_t type) {
    size_t place = NLMSG_ALIGN(message()->nlmsg_len);
    rtattr attribute = {static_cast<uint16_t>(RTA_LENGTH(0)), type};
    Append(&attribute, sizeof attribute);
    return place;
}

void RtRequest::Close(size_t place) {
    auto *attribute = reinterpret_cast<rtattr *>(buffer_.data() + place);
    attribute->rta_len = static_cast<uint16_t>(message()->nlmsg_len - place);
}

bool RtSocket::Open(uint32_t groups, int protocol) {
    socket_.reset(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, protocol));
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_groups = groups;
    if (!socket_ || bind(socket_.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        Complain("netlink socket: %s", strerror(errno));
        return false;
    }
    if (groups != 0) {
        setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUFFORCE, &ANNOUNCEMENT_BYTES, sizeof ANNOUNCEMENT_BYTES);
    }
    return true;
}

int RtSocket::Send(RtRequest *request) {
    request->message()->nlmsg_seq = ++sequence_;
    sockaddr_nl kernel = {};
    kernel.nl_family = AF_NETLINK;
    ssize_t sent = sendto(socket_.get(), request->message(), request->message()->nlmsg_len, 0,
                          reinterpret_cast<sockaddr *>(&kernel), sizeof kernel);
    return sent < 0 ? errno : 0;
}

int RtSocket::Do(RtRequest *request) {
    request->message()->nlmsg_flags |= NLM_F_ACK;
    return Ask(request, [](const nlmsghdr *) {});
}

int RtSocket::Ask(RtRequest *request, const std::function<void(const nlmsghdr *)> &visit) {
    bool single = (request->message()->nlmsg_flags & (NLM_F_DUMP | NLM_F_ACK)) == 0;
    int error = Send(request);
    bool ended = error != 0;
    bool interrupted = false;
    alignas(nlmsghdr) AnswerBuffer buffer;
    while (!ended) {
        ssize_t size = Receive(socket_.get(), &buffer, 0);
        if (size < 0) {
            return static_cast<int>(-size);
        }
        ForEachMessage(buffer, size, [&](const nlmsghdr *message) {
            if (message->nlmsg_seq != sequence_) {
                return;
            }
            interrupted = interrupted || (message->nlmsg_flags & NLM_F_DUMP_INTR) != 0;
            if (message->nlmsg_type == NLMSG_ERROR) {
                error = -static_cast<const nlmsgerr *>(NLMSG_DATA(message))->error;
                ended = true;
            } else if (message->nlmsg_type == NLMSG_DONE) {
                ended = true;
            } else {
                visit(message);
                ended = single;
            }
        });
    }
    return error == 0 && interrupted ? EAGAIN : error;
}

bool RtSocket::TakeAnnouncements(const std::function<void(const nlmsghdr *)> &visit) {
    alignas(nlmsghdr) AnswerBuffer buffer;
    for (;;) {
        ssize_t size = Receive(socket_.get(), &buffer, MSG_DONTWAIT);
        if (size < 0) {
            return size != -ENOBUFS;
        }
        ForEachMessage(buffer, size, visit);
    }
}

void Rt_ForEachAttribute(const nlmsghdr *message, size_t headerSize,
                         const std::function<void(const rtattr *)> &visit) {
    auto left = static_cast<int>(NLMSG_PAYLOAD(message, headerSize));
    auto *attribute = reinterpret_cast<const rtattr *>(static_cast<const char *>(NLMSG_DATA(message)) +
                                                       NLMSG_ALIGN(headerSize));
    for (; RTA_OK(attribute, left); attribute = RTA_NEXT(attribute, left)) {
        visit(attribute);
    }
}

uint32_t Rt_Value32(const rtattr *attribute) {
    uint32_t value = 0;
    if (RTA_PAYLOAD(attribute) >= sizeof value) {
        memcpy(&value, RTA_DATA(attribute), sizeof value);
    }
    return value;
}
