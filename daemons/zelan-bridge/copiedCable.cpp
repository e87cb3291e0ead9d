#include "daemons/zelan-bridge/copiedCable.h"

#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "daemons/zelan-bridge/offloadHeader.h"

namespace {

constexpr size_t VLAN_TAG_SIZE = 4;
constexpr size_t ADDRESSES_SIZE = 12;

// Frames that one call moves at most.
constexpr int FRAMES_PER_TURN = 256;

uint16_t ReadWord(const uint8_t *bytes) {
    uint16_t word = 0;
    memcpy(&word, bytes, sizeof word);
    return ntohs(word);
}

bool IsTagType(uint16_t type) {
    return type == ETHERTYPE_VLAN || type == ETH_P_8021AD;
}

// The frame has at least an Ethernet header.
FrameHead ReadHead(const uint8_t *frame, size_t size) {
    FrameHead head = {Mac_Read(frame), Mac_Read(frame + ETH_ALEN), 0, 0};
    if (IsTagType(ReadWord(frame + ADDRESSES_SIZE)) && size >= sizeof(ether_header) + VLAN_TAG_SIZE) {
        head.vlan = ReadWord(frame + ADDRESSES_SIZE + 2) & (VLAN_COUNT - 1);
        head.nested = head.vlan == 0 && IsTagType(ReadWord(frame + ADDRESSES_SIZE + VLAN_TAG_SIZE)) ? 1 : 0;
    }
    return head;
}

SentFrame *FindPrint(HeardGuests *guests, const uint8_t *frame, size_t size, uint64_t *print) {
    if (size < PRINT_BYTES) {
        return nullptr;
    }
    *print = Frame_Print(frame, 0);
    return &guests->sent[Frame_PrintPlace(*print)];
}

// The tag that the kernel has taken out of a received frame; 0 for none, the protocol in the upper half.
uint32_t TakenVlanTag(msghdr *message) {
    for (cmsghdr *control = CMSG_FIRSTHDR(message); control != nullptr;
         control = CMSG_NXTHDR(message, control)) {
        if (control->cmsg_level != SOL_PACKET || control->cmsg_type != PACKET_AUXDATA) {
            continue;
        }
        tpacket_auxdata data;
        memcpy(&data, CMSG_DATA(control), sizeof data);
        if ((data.tp_status & TP_STATUS_VLAN_VALID) != 0) {
            uint32_t protocol = (data.tp_status & TP_STATUS_VLAN_TPID_VALID) != 0 ? data.tp_vlan_tpid
                                                                                  : uint32_t{ETHERTYPE_VLAN};
            return protocol << 16 | data.tp_vlan_tci;
        }
    }
    return 0;
}

// Puts the tag back. The header and the addresses move into the free bytes before `start`.
uint8_t *RestoreVlanTag(uint8_t *start, uint32_t tag) {
    uint8_t *moved = start - VLAN_TAG_SIZE;
    memmove(moved, start, sizeof(OffloadHeader) + ADDRESSES_SIZE);
    uint32_t wire = htonl(tag);
    memcpy(moved + sizeof(OffloadHeader) + ADDRESSES_SIZE, &wire, sizeof wire);
    OffloadHeader header;
    memcpy(&header, moved, sizeof header);
    if ((header.flags & HEADER_NEEDS_CHECKSUM) != 0) {
        header.csum_start = static_cast<uint16_t>(header.csum_start + VLAN_TAG_SIZE);
    }
    if (header.gso_type != HEADER_NO_SEGMENTS) {
        header.hdr_len = static_cast<uint16_t>(header.hdr_len + VLAN_TAG_SIZE);
    }
    memcpy(moved, &header, sizeof header);
    return moved;
}

// One frame from the adapter's socket.
struct ReceivedFrame {
    uint8_t *start;
    size_t size;
};

// Receives into `buffer`; false when nothing waits. A frame that is of no use has size 0.
bool ReceiveFrame(int socket, FrameBuffer *buffer, ReceivedFrame *frame) {
    uint8_t *start = buffer->data() + VLAN_TAG_SIZE;
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(tpacket_auxdata))];
    iovec space = {start, buffer->size() - VLAN_TAG_SIZE};
    msghdr message = {};
    message.msg_iov = &space;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    ssize_t size = recvmsg(socket, &message, MSG_DONTWAIT);
    if (size < 0) {
        // An offload that the header cannot tell of (EINVAL) or an adapter that goes down costs that frame.
        frame->size = 0;
        return errno != EAGAIN;
    }
    bool whole = (message.msg_flags & MSG_TRUNC) == 0 &&
                 static_cast<size_t>(size) >= sizeof(OffloadHeader) + sizeof(ether_header);
    *frame = {start, whole ? static_cast<size_t>(size) : 0};
    uint32_t tag = whole ? TakenVlanTag(&message) : 0;
    if (tag != 0) {
        *frame = {RestoreVlanTag(start, tag), static_cast<size_t>(size) + VLAN_TAG_SIZE};
    }
    return true;
}

}  // namespace

size_t SenderTable::Place(uint64_t mac) {
    constexpr uint64_t GOLDEN_RATIO = 0x9e3779b97f4a7c15;
    return static_cast<size_t>((mac * GOLDEN_RATIO) >> (64 - PLACE_BITS));
}

// Whether a guest's frame goes out. What is for the host itself cannot: it would only come to the wire.
bool CopiedCable::MayLeave(const uint8_t *frame, size_t size, HeardGuests *guests, uint64_t now) const {
    FrameHead head = ReadHead(frame, size);
    if (Mac_IsLinkControl(head.to) || head.from == record_.mac || head.to == record_.mac ||
        Frame_IsHostsVlan(&head, &record_)) {
        return false;
    }
    guests->senders.Note(head.from, now);
    if (record_.several != 0 && (Mac_IsGroup(head.to) || adapterSenders_.HeardAt(head.to) == 0)) {
        uint64_t print = 0;
        if (SentFrame *place = FindPrint(guests, frame, size, &print)) {
            *place = {print, now};
        }
    }
    return true;
}

// Whether a frame from the wire is for the guests.
bool CopiedCable::MayEnter(const uint8_t *frame, size_t size, HeardGuests *guests, uint64_t now) {
    FrameHead head = ReadHead(frame, size);
    if (Mac_IsLinkControl(head.to) || Mac_IsGroup(head.from) || head.to == record_.mac ||
        Frame_IsHostsVlan(&head, &record_)) {
        return false;
    }
    int sides = Mac_IsGroup(head.to)
                    ? TO_GUESTS | TO_ADAPTER
                    : Sides(guests->senders.HeardAt(head.to), adapterSenders_.HeardAt(head.to));
    uint64_t print = 0;
    const SentFrame *place =
        record_.several != 0 && (sides & TO_GUESTS) != 0 ? FindPrint(guests, frame, size, &print) : nullptr;
    if (place != nullptr && Frame_IsEcho(place, print, now)) {
        return false;
    }
    adapterSenders_.Note(head.from, now);
    return (sides & TO_GUESTS) != 0;
}

// False when the frame still has to wait. One that the adapter refuses for good (too long, link down) is
// lost, as it would be on a wire.
bool CopiedCable::SendHeld() {
    if (send(socket_.get(), held_.data(), heldSize_, MSG_DONTWAIT) < 0 && errno == EAGAIN) {
        return false;
    }
    heldSize_ = 0;
    return true;
}

void CopiedCable::MoveToAdapter(HeardGuests *guests, uint64_t now) {
    if (heldSize_ != 0 && !SendHeld()) {
        return;
    }
    for (int moved = 0; moved < FRAMES_PER_TURN; moved++) {
        ssize_t size = read(tap_.get(), held_.data(), held_.size());
        if (size < 0) {
            return;
        }
        size_t whole = static_cast<size_t>(size);
        if (whole < sizeof(OffloadHeader) + sizeof(ether_header) ||
            !MayLeave(held_.data() + sizeof(OffloadHeader), whole - sizeof(OffloadHeader), guests, now)) {
            continue;
        }
        heldSize_ = whole;
        if (!SendHeld()) {
            return;
        }
    }
}

void CopiedCable::MoveToSwitch(HeardGuests *guests, uint64_t now) {
    FrameBuffer buffer;
    ReceivedFrame frame;
    for (int moved = 0; moved < FRAMES_PER_TURN && ReceiveFrame(socket_.get(), &buffer, &frame); moved++) {
        if (frame.size != 0 &&
            MayEnter(frame.start + sizeof(OffloadHeader), frame.size - sizeof(OffloadHeader), guests, now)) {
            // A frame that the switch refuses is lost, as it would be there.
            (void)!write(tap_.get(), frame.start, frame.size);
        }
    }
}
