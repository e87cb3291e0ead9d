// Link work over a plain rtnetlink socket. A daemon's start is a handful of requests, so a message builder
// and a socket that waits for each answer are all it takes; nothing has to be loaded or cached for it.
#pragma once

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>

#include "lib/misc/owners.h"

// One request under construction. The buffer suffices for every request of this project.
class RtRequest {
  public:
    // `header` is the family's fixed part, as an ifinfomsg.
    RtRequest(uint16_t type, uint16_t flags, const void *header, size_t headerSize);

    // Adds an attribute.
    void Put(uint16_t type, const void *data, size_t size);
    void PutText(uint16_t type, const char *text);
    void Put32(uint16_t type, uint32_t value);
    void Put8(uint16_t type, uint8_t value);
    // Adds bytes that belong to the attribute opened last, before its own attributes.
    void Append(const void *data, size_t size);
    // Begins an attribute that holds attributes, and ends it by the place that Open gave.
    size_t Open(uint16_t type);
    void Close(size_t place);

    nlmsghdr *message() { return reinterpret_cast<nlmsghdr *>(buffer_.data()); }

  private:
    alignas(nlmsghdr) std::array<char, 1024> buffer_ = {};
};

class RtSocket {
  public:
    static constexpr uint32_t NO_GROUPS = 0;

    // With `groups`, a mask of RTMGRP_ values, the socket also receives the kernel's announcements. Another
    // `protocol` than that of routing and links is spoken to in the same forms. False after a line in the
    // log.
    bool Open(uint32_t groups = NO_GROUPS, int protocol = NETLINK_ROUTE);

    // Sends a request and waits for the kernel's verdict: 0 or an errno value.
    int Do(RtRequest *request);

    // Sends a request and shows every message of the answer to `visit`. 0 or an errno value; EAGAIN for a
    // dump during which something changed, so that it may have left something out.
    int Ask(RtRequest *request, const std::function<void(const nlmsghdr *)> &visit);

    // Shows the announcements that are waiting to `visit`, without blocking. False when some were lost, after
    // which only a fresh dump tells the state.
    bool TakeAnnouncements(const std::function<void(const nlmsghdr *)> &visit);

    int descriptor() const { return socket_.get(); }

  private:
    int Send(RtRequest *request);

    FileDescriptor socket_;
    uint32_t sequence_ = 0;
};

// Walks the attributes of a message whose fixed part has `headerSize` bytes.
void Rt_ForEachAttribute(const nlmsghdr *message, size_t headerSize,
                         const std::function<void(const rtattr *)> &visit);

// An attribute's 32-bit value; 0 when it is too short.
uint32_t Rt_Value32(const rtattr *attribute);
