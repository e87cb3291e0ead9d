#include "daemons/common/link.h"

#include <linux/if_link.h>
#include <linux/veth.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "daemons/common/complain.h"
#include "daemons/common/file.h"

namespace {

// Queues of a veth end: it defaults to one per processor, each with sysfs entries of its own, of which only
// the first is ever used.
constexpr uint32_t VETH_QUEUES = 1;

constexpr int NO_INDEX = 0;

RtRequest LinkRequest(uint16_t type, int index, uint16_t flags = 0) {
    ifinfomsg header = {};
    header.ifi_index = index;
    return RtRequest(type, flags, &header, sizeof header);
}

int SetNumber(RtSocket *socket, int index, uint16_t attribute, uint32_t value) {
    RtRequest request = LinkRequest(RTM_SETLINK, index);
    request.Put32(attribute, value);
    return socket->Do(&request);
}

// Shows the attributes within an attribute.
template <typename Visit>
void ForEachInside(const rtattr *outer, const Visit &visit) {
    auto left = static_cast<int>(RTA_PAYLOAD(outer));
    auto *attribute = static_cast<const rtattr *>(RTA_DATA(outer));
    for (; RTA_OK(attribute, left); attribute = RTA_NEXT(attribute, left)) {
        visit(attribute);
    }
}

void ReadKind(const rtattr *linkInfo, LinkInfo *link) {
    const rtattr *data = nullptr;
    ForEachInside(linkInfo, [&](const rtattr *attribute) {
        if (attribute->rta_type == IFLA_INFO_KIND) {
            const char *text = static_cast<const char *>(RTA_DATA(attribute));
            link->kind.assign(text, strnlen(text, RTA_PAYLOAD(attribute)));
        } else if (attribute->rta_type == IFLA_INFO_DATA) {
            data = attribute;
        }
    });
    if (data == nullptr || link->kind != "vlan") {
        return;
    }
    ForEachInside(data, [&](const rtattr *attribute) {
        if (attribute->rta_type == IFLA_VLAN_ID) {
            memcpy(&link->vlan, RTA_DATA(attribute), sizeof link->vlan);
        }
    });
}

void ReadAttribute(const rtattr *attribute, LinkInfo *link) {
    const char *data = static_cast<const char *>(RTA_DATA(attribute));
    switch (attribute->rta_type) {
        case IFLA_IFNAME:
            link->name.assign(data, strnlen(data, RTA_PAYLOAD(attribute)));
            break;
        case IFLA_ADDRESS:
            if (RTA_PAYLOAD(attribute) == link->mac.size()) {
                memcpy(link->mac.data(), data, link->mac.size());
            }
            break;
        case IFLA_MASTER:
            link->master = static_cast<int>(Rt_Value32(attribute));
            break;
        case IFLA_GROUP:
            link->group = Rt_Value32(attribute);
            break;
        case IFLA_MTU:
            link->mtu = Rt_Value32(attribute);
            break;
        case IFLA_LINKINFO:
            ReadKind(attribute, link);
            break;
        case IFLA_LINK:
            link->lower = static_cast<int>(Rt_Value32(attribute));
            break;
        case IFLA_LINK_NETNSID:
            link->lowerIsElsewhere = true;
            break;
        default:
            break;
    }
}

}  // namespace

bool Link_Parse(const nlmsghdr *message, LinkInfo *link) {
    if (message->nlmsg_type != RTM_NEWLINK && message->nlmsg_type != RTM_DELLINK) {
        return false;
    }
    auto *header = static_cast<const ifinfomsg *>(NLMSG_DATA(message));
    if (header->ifi_family != AF_UNSPEC) {
        return false;
    }
    *link = LinkInfo();
    link->index = header->ifi_index;
    link->type = header->ifi_type;
    link->flags = header->ifi_flags;
    Rt_ForEachAttribute(message, sizeof *header,
                        [link](const rtattr *attribute) { ReadAttribute(attribute, link); });
    return !link->name.empty();
}

int Link_Get(RtSocket *socket, int index, LinkInfo *link) {
    RtRequest request = LinkRequest(RTM_GETLINK, index);
    return socket->Ask(&request, [link](const nlmsghdr *message) { Link_Parse(message, link); });
}

int Link_Find(RtSocket *socket, const char *name, LinkInfo *link) {
    RtRequest request = LinkRequest(RTM_GETLINK, NO_INDEX);
    request.PutText(IFLA_IFNAME, name);
    return socket->Ask(&request, [link](const nlmsghdr *message) { Link_Parse(message, link); });
}

int Link_ForEach(RtSocket *socket, int master, const std::function<void(const LinkInfo &)> &visit) {
    constexpr int ATTEMPTS = 10;
    std::vector<LinkInfo> links;
    int error = EAGAIN;
    for (int attempt = 0; error == EAGAIN && attempt < ATTEMPTS; attempt++) {
        links.clear();
        RtRequest request = LinkRequest(RTM_GETLINK, NO_INDEX, NLM_F_DUMP);
        if (master != 0) {
            request.Put32(IFLA_MASTER, static_cast<uint32_t>(master));
        }
        error = socket->Ask(&request, [&](const nlmsghdr *message) {
            LinkInfo link;
            // A kernel that does not know the filter shows all.
            if (Link_Parse(message, &link) && (master == 0 || link.master == master)) {
                links.push_back(link);
            }
        });
    }
    for (const LinkInfo &link : links) {
        visit(link);
    }
    return error;
}

int Link_SetFlags(RtSocket *socket, int index, unsigned flags, unsigned mask) {
    ifinfomsg header = {};
    header.ifi_index = index;
    header.ifi_flags = flags;
    header.ifi_change = mask;
    RtRequest request(RTM_SETLINK, 0, &header, sizeof header);
    return socket->Do(&request);
}

int Link_SetMaster(RtSocket *socket, int index, int master) {
    return SetNumber(socket, index, IFLA_MASTER, static_cast<uint32_t>(master));
}

int Link_SetMtu(RtSocket *socket, int index, uint32_t mtu) {
    return SetNumber(socket, index, IFLA_MTU, mtu);
}

int Link_SetMac(RtSocket *socket, int index, const MacAddress &mac) {
    RtRequest request = LinkRequest(RTM_SETLINK, index);
    request.Put(IFLA_ADDRESS, mac.data(), mac.size());
    return socket->Do(&request);
}

int Link_SetGroup(RtSocket *socket, int index, uint32_t group) {
    return SetNumber(socket, index, IFLA_GROUP, group);
}

int Link_SetName(RtSocket *socket, int index, const char *name) {
    RtRequest request = LinkRequest(RTM_SETLINK, index);
    request.PutText(IFLA_IFNAME, name);
    return socket->Do(&request);
}

int Link_Delete(RtSocket *socket, int index) {
    RtRequest request = LinkRequest(RTM_DELLINK, index);
    return socket->Do(&request);
}

int Link_DeleteGroup(RtSocket *socket, uint32_t group) {
    RtRequest request = LinkRequest(RTM_DELLINK, NO_INDEX);
    request.Put32(IFLA_GROUP, group);
    return socket->Do(&request);
}

int Link_MakeVeth(RtSocket *socket, const VethPlan &plan) {
    RtRequest request = LinkRequest(RTM_NEWLINK, NO_INDEX, NLM_F_CREATE | NLM_F_EXCL);
    request.PutText(IFLA_IFNAME, plan.name);
    request.Put32(IFLA_GROUP, plan.group);
    request.Put32(IFLA_NUM_TX_QUEUES, VETH_QUEUES);
    request.Put32(IFLA_NUM_RX_QUEUES, VETH_QUEUES);
    if (plan.master != 0) {
        request.Put32(IFLA_MASTER, static_cast<uint32_t>(plan.master));
    }
    size_t linkInfo = request.Open(IFLA_LINKINFO);
    request.PutText(IFLA_INFO_KIND, "veth");
    size_t data = request.Open(IFLA_INFO_DATA);
    size_t peer = request.Open(VETH_INFO_PEER);
    ifinfomsg peerHeader = {};
    request.Append(&peerHeader, sizeof peerHeader);
    request.PutText(IFLA_IFNAME, plan.peerName);
    request.Put32(IFLA_GROUP, plan.peerGroup);
    request.Put32(IFLA_NUM_TX_QUEUES, VETH_QUEUES);
    request.Put32(IFLA_NUM_RX_QUEUES, VETH_QUEUES);
    if (plan.peerNamespace >= 0) {
        request.Put32(IFLA_NET_NS_FD, static_cast<uint32_t>(plan.peerNamespace));
    }
    request.Close(peer);
    request.Close(data);
    request.Close(linkInfo);
    return socket->Do(&request);
}

bool Link_ForbidIpv6(const char *name) {
    static constexpr const char *SETTINGS[][2] = {
        {"disable_ipv6", "1"}, {"accept_ra", "0"}, {"autoconf", "0"}};
    if (access("/proc/sys/net/ipv6", F_OK) != 0) {
        return true;  // a kernel without IPv6
    }
    for (const auto &[setting, value] : SETTINGS) {
        char path[128];
        snprintf(path, sizeof path, "/proc/sys/net/ipv6/conf/%s/%s", name, setting);
        if (!File_Write(path, value)) {
            Complain("cannot keep IPv6 off %s: %s: %s", name, path, strerror(errno));
            return false;
        }
    }
    return true;
}

bool Link_IsValidName(const char *name) {
    size_t length = strlen(name);
    if (length == 0 || length >= IFNAMSIZ || strcmp(name, ".") == 0 || strcmp(name, "..") == 0) {
        return false;
    }
    for (const char *letter = name; *letter != '\0'; letter++) {
        if (*letter == '/' || *letter == ':' || *letter == '%' ||
            isspace(static_cast<unsigned char>(*letter))) {
            return false;
        }
    }
    return true;
}
