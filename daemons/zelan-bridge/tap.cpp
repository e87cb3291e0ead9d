#include "daemons/zelan-bridge/tap.h"

#include <fcntl.h>
#include <linux/if_tun.h>
#include <linux/neighbour.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "daemons/common/complain.h"
#include "daemons/common/linkGroup.h"
#include "daemons/common/switch.h"
#include "daemons/zelan-bridge/offloadHeader.h"

namespace {

#ifndef TUN_F_USO4
#define TUN_F_USO4 0x20
#define TUN_F_USO6 0x40
#endif
constexpr unsigned TAP_OFFLOADS = TUN_F_CSUM | TUN_F_TSO4 | TUN_F_TSO6 | TUN_F_TSO_ECN;
constexpr unsigned TAP_OFFLOADS_SINCE_6_2 = TUN_F_USO4 | TUN_F_USO6;

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

int ChangeForwarding(RtSocket *socket, uint16_t type, int port, const MacAddress &mac) {
    ndmsg header = {};
    header.ndm_family = AF_BRIDGE;
    header.ndm_ifindex = port;
    header.ndm_state = NUD_NOARP;
    header.ndm_flags = NTF_MASTER | NTF_STICKY;
    uint16_t flags = type == RTM_NEWNEIGH ? NLM_F_CREATE | NLM_F_REPLACE : 0;
    RtRequest request(type, flags, &header, sizeof header);
    request.Put(NDA_LLADDR, mac.data(), mac.size());
    return socket->Do(&request);
}

}  // namespace

bool Tap::Make(RtSocket *socket, int network, const LinkInfo &adapter) {
    ifreq request = {};
    int headerSize = sizeof(OffloadHeader);
    snprintf(request.ifr_name, sizeof request.ifr_name, "zelan-b%d-%%d", network);
    request.ifr_flags = IFF_TAP | IFF_NO_PI | IFF_VNET_HDR;
    descriptor_.reset(open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC));
    int handle = descriptor_.get();
    if (!descriptor_ || ioctl(handle, TUNSETIFF, &request) != 0 ||
        ioctl(handle, TUNSETVNETHDRSZ, &headerSize) != 0 ||
        (ioctl(handle, TUNSETOFFLOAD, TAP_OFFLOADS | TAP_OFFLOADS_SINCE_6_2) != 0 &&
         ioctl(handle, TUNSETOFFLOAD, TAP_OFFLOADS) != 0)) {
        Complain("cannot make a TAP for %s: %s", adapter.name.c_str(), strerror(errno));
        return false;
    }
    index_ = static_cast<int>(if_nametoindex(request.ifr_name));
    FollowMtu(socket, adapter.mtu);
    return Link_ForbidIpv6(request.ifr_name);
}

bool Tap::Plug(RtSocket *socket, int network, const LinkInfo &adapter) {
    int master = Switch_Ensure(socket, network);
    int error = master == 0 ? ENODEV : Link_SetGroup(socket, index_, LINK_GROUP_CARRIER);
    if (error == 0) {
        error = Link_SetMaster(socket, index_, master);
    }
    if (error == 0) {
        error = IsolatePort(socket, index_);
    }
    if (error == 0) {
        error = Link_SetFlags(socket, index_, IFF_UP, IFF_UP);
    }
    if (error != 0) {
        Complain("cannot attach %s to the switch: %s", adapter.name.c_str(), strerror(error));
        return false;
    }
    FollowMac(socket, adapter.mac);
    return true;
}

void Tap::FollowMtu(RtSocket *socket, uint32_t mtu) {
    if (mtu != mtu_ && Link_SetMtu(socket, index_, mtu) == 0) {
        mtu_ = mtu;
    }
}

void Tap::FollowMac(RtSocket *socket, const MacAddress &mac) {
    if (mac == mac_) {
        return;
    }
    if (mac_ != MacAddress()) {
        ChangeForwarding(socket, RTM_DELNEIGH, index_, mac_);
    }
    int error = ChangeForwarding(socket, RTM_NEWNEIGH, index_, mac);
    if (error != 0) {
        Complain("cannot keep the host's address at its port: %s", strerror(error));
    }
    mac_ = mac;
}
