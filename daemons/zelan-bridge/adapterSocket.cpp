#include "daemons/zelan-bridge/adapterSocket.h"

#include <linux/ethtool.h>
#include <linux/filter.h>
#include <linux/if_packet.h>
#include <linux/sockios.h>
#include <net/ethernet.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "daemons/common/complain.h"

#ifndef PACKET_IGNORE_OUTGOING
#define PACKET_IGNORE_OUTGOING 23
#endif

namespace {

// Room for bursts of 64 KiB frames, beyond what an unprivileged program may ask for.
constexpr int SOCKET_BUFFER = 8 * 1024 * 1024;

// The kernel does this by itself for adapters that it forwards for or that are ports of a bridge.
void TurnLargeReceiveOff(const FileDescriptor &handle, const LinkInfo &adapter) {
    ethtool_value flags = {};
    ifreq request = {};
    snprintf(request.ifr_name, sizeof request.ifr_name, "%s", adapter.name.c_str());
    request.ifr_data = reinterpret_cast<char *>(&flags);
    flags.cmd = ETHTOOL_GFLAGS;
    if (ioctl(handle.get(), SIOCETHTOOL, &request) != 0 || (flags.data & ETH_FLAG_LRO) == 0) {
        return;
    }
    flags.cmd = ETHTOOL_SFLAGS;
    flags.data &= ~static_cast<uint32_t>(ETH_FLAG_LRO);
    if (ioctl(handle.get(), SIOCETHTOOL, &request) != 0) {
        Complain("%s joins received segments (LRO), and large frames to guests may be lost: %s",
                 adapter.name.c_str(), strerror(errno));
    }
}

// What is for the host alone is never copied, so that the host's own traffic costs no processor time.
bool LeaveTheHostsOut(int handle) {
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(SKF_AD_OFF + SKF_AD_PKTTYPE)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, PACKET_HOST, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, 0),
        BPF_STMT(BPF_RET | BPF_K, UINT32_MAX),
    };
    sock_fprog program = {sizeof filter / sizeof filter[0], filter};
    return setsockopt(handle, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) == 0;
}

}  // namespace

FileDescriptor AdapterSocket_Open(const LinkInfo &adapter) {
    // Without a protocol it hears nothing.
    FileDescriptor handle(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0));
    packet_mreq promiscuous = {};
    promiscuous.mr_ifindex = adapter.index;
    promiscuous.mr_type = PACKET_MR_PROMISC;
    if (!handle ||
        setsockopt(handle.get(), SOL_PACKET, PACKET_ADD_MEMBERSHIP, &promiscuous, sizeof promiscuous) != 0) {
        Complain("cannot make %s promiscuous: %s", adapter.name.c_str(), strerror(errno));
        return FileDescriptor();
    }
    TurnLargeReceiveOff(handle, adapter);
    return handle;
}

bool AdapterSocket_Listen(const FileDescriptor &handle, int adapter) {
    int on = 1;
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = adapter;
    int file = handle.get();
    if (!LeaveTheHostsOut(file) || setsockopt(file, SOL_PACKET, PACKET_VNET_HDR, &on, sizeof on) != 0 ||
        setsockopt(file, SOL_PACKET, PACKET_AUXDATA, &on, sizeof on) != 0 ||
        setsockopt(file, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on) != 0 ||
        bind(file, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        Complain("cannot listen on the adapter: %s", strerror(errno));
        return false;
    }
    setsockopt(file, SOL_SOCKET, SO_RCVBUFFORCE, &SOCKET_BUFFER, sizeof SOCKET_BUFFER);
    setsockopt(file, SOL_SOCKET, SO_SNDBUFFORCE, &SOCKET_BUFFER, sizeof SOCKET_BUFFER);
    return true;
}
