#include "daemons/zelan-bridge/cable.h"

#include <fcntl.h>
#include <linux/if_packet.h>
#include <linux/if_tun.h>
#include <net/ethernet.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "daemons/common/complain.h"
#include "daemons/common/linkGroup.h"
#include "daemons/common/switch.h"

namespace {

// The virtio-net header in its basic form, the only one that the packet socket knows. (The kernel's own
// header file for it is not C++.)
struct FrameHeader {
    uint8_t flags;
    uint8_t gso_type;
    uint16_t hdr_len;
    uint16_t gso_size;
    uint16_t csum_start;
    uint16_t csum_offset;
};
static_assert(sizeof(FrameHeader) == 10);
constexpr uint8_t HEADER_NEEDS_CHECKSUM = 1;
constexpr uint8_t HEADER_NO_SEGMENTS = 0;

constexpr size_t VLAN_TAG_SIZE = 4;
constexpr size_t ADDRESSES_SIZE = 12;

// Frames that one call moves at most.
constexpr int FRAMES_PER_TURN = 256;

// Room for bursts of 64 KiB frames, beyond what an unprivileged program may ask for.
constexpr int SOCKET_BUFFER = 8 * 1024 * 1024;

constexpr unsigned TAP_OFFLOADS = TUN_F_CSUM | TUN_F_TSO4 | TUN_F_TSO6 | TUN_F_TSO_ECN;
#ifdef TUN_F_USO4
constexpr unsigned TAP_OFFLOADS_SINCE_6_2 = TUN_F_USO4 | TUN_F_USO6;
#else
constexpr unsigned TAP_OFFLOADS_SINCE_6_2 = 0x20 | 0x40;
#endif

#ifndef PACKET_IGNORE_OUTGOING
#define PACKET_IGNORE_OUTGOING 23
#endif

// Ports for adapters do not talk to each other, only to guests: two adapters on one physical network would
// otherwise close a loop through the switch.
int IsolatePort(RtSocket *socket, int index) {
    ifinfomsg header = {};
    header.ifi_family = AF_BRIDGE;
    header.ifi_index = index;
    RtRequest request(RTM_SETLINK, 0, &header, sizeof header);
    size_t port = request.Open(IFLA_PROTINFO | NLA_F_NESTED);
    request.Put8(IFLA_BRPORT_ISOLATED, 1);
    request.Close(port);
    return socket->Do(&request);
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
    memmove(moved, start, sizeof(FrameHeader) + ADDRESSES_SIZE);
    uint32_t wire = htonl(tag);
    memcpy(moved + sizeof(FrameHeader) + ADDRESSES_SIZE, &wire, sizeof wire);
    FrameHeader header;
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
                 static_cast<size_t>(size) >= sizeof(FrameHeader) + sizeof(ether_header);
    *frame = {start, whole ? static_cast<size_t>(size) : 0};
    uint32_t tag = whole ? TakenVlanTag(&message) : 0;
    if (tag != 0) {
        *frame = {RestoreVlanTag(start, tag), static_cast<size_t>(size) + VLAN_TAG_SIZE};
    }
    return true;
}

}  // namespace

bool Cable::Connect(RtSocket *socket, int network, const LinkInfo &adapter) {
    adapterIndex_ = adapter.index;
    adapterName_ = adapter.name;
    return OpenSocket() && OpenTap(socket, network, adapter);
}

bool Cable::OpenTap(RtSocket *socket, int network, const LinkInfo &adapter) {
    ifreq request = {};
    int headerSize = sizeof(FrameHeader);
    snprintf(request.ifr_name, sizeof request.ifr_name, "zelan-b%d-%%d", network);
    request.ifr_flags = IFF_TAP | IFF_NO_PI | IFF_VNET_HDR;
    tap_.reset(open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!tap_ || ioctl(tap_.get(), TUNSETIFF, &request) != 0 ||
        ioctl(tap_.get(), TUNSETVNETHDRSZ, &headerSize) != 0 ||
        (ioctl(tap_.get(), TUNSETOFFLOAD, TAP_OFFLOADS | TAP_OFFLOADS_SINCE_6_2) != 0 &&
         ioctl(tap_.get(), TUNSETOFFLOAD, TAP_OFFLOADS) != 0)) {
        Complain("cannot make a TAP for %s: %s", adapter.name.c_str(), strerror(errno));
        return false;
    }
    memcpy(tapName_, request.ifr_name, sizeof tapName_);
    tapIndex_ = static_cast<int>(if_nametoindex(tapName_));
    if (!Link_ForbidIpv6(tapName_)) {
        return false;
    }
    Follow(socket, adapter);
    int error = Link_SetGroup(socket, tapIndex_, LINK_GROUP_CARRIER);
    int master = error == 0 ? Switch_Ensure(socket, network) : 0;
    if (error == 0) {
        error = master == 0 ? ENODEV : Link_SetMaster(socket, tapIndex_, master);
    }
    if (error == 0) {
        error = IsolatePort(socket, tapIndex_);
    }
    if (error == 0) {
        error = Link_SetFlags(socket, tapIndex_, IFF_UP, IFF_UP);
    }
    if (error != 0) {
        Complain("cannot attach %s to the switch: %s", adapter.name.c_str(), strerror(error));
    }
    return error == 0;
}

bool Cable::OpenSocket() {
    // Without a protocol the socket hears nothing until it is bound, so that no frame of another adapter and
    // none without the header is ever in its queue.
    socket_.reset(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0));
    int on = 1;
    packet_mreq promiscuous = {};
    promiscuous.mr_ifindex = adapterIndex_;
    promiscuous.mr_type = PACKET_MR_PROMISC;
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = adapterIndex_;
    int handle = socket_.get();
    if (!socket_ || setsockopt(handle, SOL_PACKET, PACKET_VNET_HDR, &on, sizeof on) != 0 ||
        setsockopt(handle, SOL_PACKET, PACKET_AUXDATA, &on, sizeof on) != 0 ||
        setsockopt(handle, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on) != 0 ||
        setsockopt(handle, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &promiscuous, sizeof promiscuous) != 0 ||
        bind(handle, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        Complain("cannot listen on %s: %s", adapterName_.c_str(), strerror(errno));
        return false;
    }
    setsockopt(handle, SOL_SOCKET, SO_RCVBUFFORCE, &SOCKET_BUFFER, sizeof SOCKET_BUFFER);
    setsockopt(handle, SOL_SOCKET, SO_SNDBUFFORCE, &SOCKET_BUFFER, sizeof SOCKET_BUFFER);
    return true;
}

void Cable::Follow(RtSocket *socket, const LinkInfo &adapter) {
    adapterName_ = adapter.name;
    if (adapter.mtu != mtu_ && Link_SetMtu(socket, tapIndex_, adapter.mtu) == 0) {
        mtu_ = adapter.mtu;
    }
}

// False when the frame still has to wait. One that the adapter refuses for good (too long, link down) is
// lost, as it would be on a wire.
bool Cable::SendHeld() {
    if (send(socket_.get(), held_.data(), heldSize_, MSG_DONTWAIT) < 0 && errno == EAGAIN) {
        return false;
    }
    heldSize_ = 0;
    return true;
}

void Cable::MoveToAdapter(GuestTable *guests, GuestTable::Time now) {
    if (heldSize_ != 0 && !SendHeld()) {
        return;
    }
    for (int moved = 0; moved < FRAMES_PER_TURN; moved++) {
        ssize_t size = read(tap_.get(), held_.data(), held_.size());
        if (size < 0) {
            return;
        }
        heldSize_ = static_cast<size_t>(size);
        if (heldSize_ < sizeof(FrameHeader) + sizeof(ether_header)) {
            heldSize_ = 0;
            continue;
        }
        guests->NoteSender(held_.data() + sizeof(FrameHeader), now);
        if (!SendHeld()) {
            return;
        }
    }
}

void Cable::MoveToSwitch(const GuestTable &guests, GuestTable::Time now) {
    FrameBuffer buffer;
    ReceivedFrame frame;
    for (int moved = 0; moved < FRAMES_PER_TURN && ReceiveFrame(socket_.get(), &buffer, &frame); moved++) {
        if (frame.size != 0 && !guests.IsEcho(frame.start + sizeof(FrameHeader), now)) {
            // A frame that the switch refuses is lost, as it would be there.
            (void)!write(tap_.get(), frame.start, frame.size);
        }
    }
}
