#include "apps/zelan/posix/harbrelctl/model/links.h"

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <net/if_arp.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <span>

namespace {

constexpr unsigned MAC_BYTES = 6;
constexpr size_t BUFFER_SIZE = 65536;

struct SocketCloser {
    void operator()(mnl_socket *socket) const { mnl_socket_close(socket); }
};
using MnlSocket = std::unique_ptr<mnl_socket, SocketCloser>;

template <typename Visit>
int CallVisit(const nlattr *attribute, void *visit) {
    (*static_cast<const Visit *>(visit))(attribute, mnl_attr_get_type(attribute));
    return MNL_CB_OK;
}

// Walks the attributes behind a message's own header of type T.
template <typename T, typename Visit>
void ForEachAttribute(const nlmsghdr *message, Visit visit) {
    mnl_attr_parse(message, sizeof(T), CallVisit<Visit>, &visit);
}

std::string MacIn(const nlattr *attribute) {
    if (mnl_attr_get_payload_len(attribute) != MAC_BYTES) {
        return "";
    }
    const auto *bytes = static_cast<const uint8_t *>(mnl_attr_get_payload(attribute));
    char text[18];
    snprintf(text, sizeof text, "%02X:%02X:%02X:%02X:%02X:%02X", bytes[0], bytes[1], bytes[2], bytes[3],
             bytes[4], bytes[5]);
    return text;
}

uint32_t AddressIn(const nlattr *attribute) {
    return mnl_attr_get_payload_len(attribute) == 4 ? ntohl(mnl_attr_get_u32(attribute)) : 0;
}

void TakeCounters(const nlattr *attribute, Link *link) {
    rtnl_link_stats64 counters = {};
    const size_t length = mnl_attr_get_payload_len(attribute);
    memcpy(&counters, mnl_attr_get_payload(attribute), std::min(length, sizeof counters));
    link->receivedBytes = counters.rx_bytes;
    link->sentBytes = counters.tx_bytes;
    link->receivedPackets = counters.rx_packets;
    link->sentPackets = counters.tx_packets;
}

int TakeLinkInfo(const nlattr *attribute, void *link) {
    if (mnl_attr_get_type(attribute) == IFLA_INFO_KIND) {
        static_cast<Link *>(link)->kind = mnl_attr_get_str(attribute);
    }
    return MNL_CB_OK;
}

void TakeLinkAttribute(const nlattr *attribute, int type, Link *link) {
    switch (type) {
        case IFLA_IFNAME:
            link->name = mnl_attr_get_str(attribute);
            break;
        case IFLA_MASTER:
            link->master = static_cast<int>(mnl_attr_get_u32(attribute));
            break;
        case IFLA_GROUP:
            link->group = mnl_attr_get_u32(attribute);
            break;
        case IFLA_CARRIER:
            link->carrier = mnl_attr_get_u8(attribute) != 0;
            break;
        case IFLA_ADDRESS:
            link->mac = link->ethernet ? MacIn(attribute) : "";
            break;
        case IFLA_LINKINFO:
            mnl_attr_parse_nested(attribute, TakeLinkInfo, link);
            break;
        case IFLA_STATS64:
            TakeCounters(attribute, link);
            break;
        default:
            break;
    }
}

int TakeLink(const nlmsghdr *message, void *data) {
    const auto *header = static_cast<const ifinfomsg *>(mnl_nlmsg_get_payload(message));
    Link link;
    link.index = header->ifi_index;
    link.flags = header->ifi_flags;
    link.ethernet = header->ifi_type == ARPHRD_ETHER;
    ForEachAttribute<ifinfomsg>(
        message, [&](const nlattr *attribute, int type) { TakeLinkAttribute(attribute, type, &link); });
    static_cast<KernelView *>(data)->links.push_back(link);
    return MNL_CB_OK;
}

int TakeAddress(const nlmsghdr *message, void *data) {
    const auto *header = static_cast<const ifaddrmsg *>(mnl_nlmsg_get_payload(message));
    LinkAddress address;
    address.link = static_cast<int>(header->ifa_index);
    ForEachAttribute<ifaddrmsg>(message, [&](const nlattr *attribute, int type) {
        if (type == IFA_LOCAL) {
            address.address = AddressIn(attribute);
        }
    });
    const uint32_t mask = MaskOf(header->ifa_prefixlen);
    address.subnet = {address.address & mask, mask};
    static_cast<KernelView *>(data)->addresses.push_back(address);
    return MNL_CB_OK;
}

int TakeRoute(const nlmsghdr *message, void *data) {
    const auto *header = static_cast<const rtmsg *>(mnl_nlmsg_get_payload(message));
    Route route;
    route.destination.mask = MaskOf(header->rtm_dst_len);
    uint32_t table = header->rtm_table;
    ForEachAttribute<rtmsg>(message, [&](const nlattr *attribute, int type) {
        if (type == RTA_DST) {
            route.destination.address = AddressIn(attribute);
        } else if (type == RTA_GATEWAY) {
            route.gateway = AddressIn(attribute);
        } else if (type == RTA_OIF) {
            route.link = static_cast<int>(mnl_attr_get_u32(attribute));
        } else if (type == RTA_TABLE) {
            table = mnl_attr_get_u32(attribute);
        }
    });
    if (table == RT_TABLE_MAIN) {
        static_cast<KernelView *>(data)->routes.push_back(route);
    }
    return MNL_CB_OK;
}

int TakeLearned(const nlmsghdr *message, void *data) {
    const auto *header = static_cast<const ndmsg *>(mnl_nlmsg_get_payload(message));
    Learned learned;
    learned.port = header->ndm_ifindex;
    ForEachAttribute<ndmsg>(message, [&](const nlattr *attribute, int type) {
        if (type == NDA_LLADDR) {
            learned.mac = MacIn(attribute);
        }
    });
    // The permanent ones are the ports' own addresses and groups.
    if ((header->ndm_state & NUD_PERMANENT) == 0 && (header->ndm_flags & NTF_SELF) == 0 &&
        !learned.mac.empty()) {
        static_cast<KernelView *>(data)->learned.push_back(learned);
    }
    return MNL_CB_OK;
}

struct DumpRow {
    uint16_t type;
    uint8_t family;
    size_t headerSize;
    mnl_cb_t take;
};

constexpr DumpRow DUMPS[] = {
    {RTM_GETLINK, AF_UNSPEC, sizeof(ifinfomsg), TakeLink},
    {RTM_GETADDR, AF_INET, sizeof(ifaddrmsg), TakeAddress},
    {RTM_GETROUTE, AF_INET, sizeof(rtmsg), TakeRoute},
    {RTM_GETNEIGH, AF_BRIDGE, sizeof(ndmsg), TakeLearned},
};

bool Dump(mnl_socket *socket, const DumpRow &row, std::span<char> buffer, KernelView *view) {
    static unsigned sequence = 0;
    nlmsghdr *const request = mnl_nlmsg_put_header(buffer.data());
    request->nlmsg_type = row.type;
    request->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request->nlmsg_seq = ++sequence;
    // Each of these headers has the family as its first byte.
    *static_cast<uint8_t *>(mnl_nlmsg_put_extra_header(request, row.headerSize)) = row.family;
    if (mnl_socket_sendto(socket, request, request->nlmsg_len) < 0) {
        return false;
    }
    int state = MNL_CB_OK;
    while (state == MNL_CB_OK) {
        const ssize_t length = mnl_socket_recvfrom(socket, buffer.data(), buffer.size());
        if (length < 0) {
            return false;
        }
        state = mnl_cb_run(buffer.data(), static_cast<size_t>(length), sequence,
                           mnl_socket_get_portid(socket), row.take, view);
    }
    return state == MNL_CB_STOP;
}

}  // namespace

bool IsOurs(uint32_t group) {
    return group >= GROUP_CARRIER && group <= GROUP_UPLINK;
}

const Link *KernelView::Find(const std::string &name) const {
    for (const Link &link : links) {
        if (link.name == name) {
            return &link;
        }
    }
    return nullptr;
}

const Link *KernelView::Find(int index) const {
    for (const Link &link : links) {
        if (link.index == index) {
            return &link;
        }
    }
    return nullptr;
}

std::string SwitchName(int network) {
    return "zelan-sw" + std::to_string(network);
}

bool ReadKernel(KernelView *view) {
    const MnlSocket socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC));
    if (socket == nullptr || mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) < 0) {
        return false;
    }
    KernelView fresh;
    std::vector<char> buffer(BUFFER_SIZE);
    for (const DumpRow &row : DUMPS) {
        if (!Dump(socket.get(), row, buffer, &fresh)) {
            return false;
        }
    }
    *view = std::move(fresh);
    return true;
}
