#include "daemons/zelan-detect/kernelView.h"

#include <arpa/inet.h>
#include <linux/if_addr.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "daemons/common/complain.h"
#include "daemons/common/link.h"

namespace {

std::string AddressText(int family, const rtattr *attribute) {
    char text[INET6_ADDRSTRLEN];
    return inet_ntop(family, RTA_DATA(attribute), text, sizeof text);
}

std::string MacText(const MacAddress &mac) {
    char text[18];
    snprintf(text, sizeof text, "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2], mac[3], mac[4],
             mac[5]);
    return text;
}

bool IsInternetFamily(int family) {
    return family == AF_INET || family == AF_INET6;
}

struct RouteParts {
    const rtattr *destination = nullptr;
    const rtattr *gateway = nullptr;
    bool several = false;
    uint32_t table = 0;
    uint32_t metric = 0;
    int link = 0;
};

RouteParts SplitRoute(const nlmsghdr *message, const rtmsg &header) {
    RouteParts parts;
    parts.table = header.rtm_table;
    Rt_ForEachAttribute(message, sizeof header, [&parts](const rtattr *attribute) {
        switch (attribute->rta_type) {
            case RTA_DST:
                parts.destination = attribute;
                break;
            case RTA_GATEWAY:
                parts.gateway = attribute;
                break;
            case RTA_MULTIPATH:
                parts.several = true;
                break;
            case RTA_TABLE:
                parts.table = Rt_Value32(attribute);
                break;
            case RTA_PRIORITY:
                parts.metric = Rt_Value32(attribute);
                break;
            case RTA_OIF:
                parts.link = static_cast<int>(Rt_Value32(attribute));
                break;
            default:
                break;
        }
    });
    return parts;
}

}  // namespace

bool KernelView::Open() {
    return requests_.Open() && announcements_.Open(RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR |
                                                   RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE);
}

std::string KernelView::LinkName(int index) const {
    auto place = linkNames_.find(index);
    return place != linkNames_.end() ? place->second : "link " + std::to_string(index);
}

KernelView::Statement KernelView::ReadLink(const nlmsghdr *message) {
    LinkInfo link;
    if (!Link_Parse(message, &link)) {
        return {};
    }
    linkNames_[link.index] = link.name;
    std::string text = link.name + (link.flags & IFF_UP ? ", up" : ", down") +
                       (link.flags & IFF_RUNNING ? ", running, " : ", not running, ") + MacText(link.mac) +
                       ", mtu " + std::to_string(link.mtu);
    bool removed = message->nlmsg_type == RTM_DELLINK;
    return {true, removed, {"link", std::to_string(link.index)}, text, removed || (link.flags & IFF_UP) == 0};
}

KernelView::Statement KernelView::ReadAddress(const nlmsghdr *message) {
    auto *header = static_cast<const ifaddrmsg *>(NLMSG_DATA(message));
    if (!IsInternetFamily(header->ifa_family)) {
        return {};
    }
    // On a point-to-point link the plain address is the other side's.
    std::string own;
    std::string plain;
    Rt_ForEachAttribute(message, sizeof *header, [&](const rtattr *attribute) {
        if (attribute->rta_type == IFA_LOCAL) {
            own = AddressText(header->ifa_family, attribute);
        } else if (attribute->rta_type == IFA_ADDRESS) {
            plain = AddressText(header->ifa_family, attribute);
        }
    });
    std::string address = (own.empty() ? plain : own) + "/" + std::to_string(header->ifa_prefixlen);
    int link = static_cast<int>(header->ifa_index);
    return {true,
            message->nlmsg_type == RTM_DELADDR,
            {"address", std::to_string(link) + " " + address},
            address + " on " + LinkName(link)};
}

// Of the routing tables the main one; the others hold what follows from the addresses or serves special ends.
KernelView::Statement KernelView::ReadRoute(const nlmsghdr *message) {
    auto *header = static_cast<const rtmsg *>(NLMSG_DATA(message));
    if (!IsInternetFamily(header->rtm_family) || (header->rtm_flags & RTM_F_CLONED) != 0) {
        return {};
    }
    RouteParts parts = SplitRoute(message, *header);
    if (parts.table != RT_TABLE_MAIN) {
        return {};
    }
    std::string text = header->rtm_family == AF_INET ? "default" : "default (IPv6)";
    if (header->rtm_dst_len != 0) {
        text = AddressText(header->rtm_family, parts.destination) + "/" + std::to_string(header->rtm_dst_len);
    }
    if (parts.gateway != nullptr) {
        text += " via " + AddressText(header->rtm_family, parts.gateway);
    }
    text += parts.several ? " by several ways" : "";
    text += parts.link != 0 ? " on " + LinkName(parts.link) : "";
    text += parts.metric != 0 ? " metric " + std::to_string(parts.metric) : "";
    return {true, message->nlmsg_type == RTM_DELROUTE, {"route", text}, text};
}

KernelView::Statement KernelView::Read(const nlmsghdr *message) {
    switch (message->nlmsg_type) {
        case RTM_NEWLINK:
        case RTM_DELLINK:
            return ReadLink(message);
        case RTM_NEWADDR:
        case RTM_DELADDR:
            return ReadAddress(message);
        case RTM_NEWROUTE:
        case RTM_DELROUTE:
            return ReadRoute(message);
        default:
            return {};
    }
}

bool KernelView::ReadAll(FactMap *facts) {
    constexpr int ATTEMPTS = 5;
    int error = EAGAIN;
    for (int attempt = 0; error == EAGAIN && attempt < ATTEMPTS; attempt++) {
        error = 0;
        facts->clear();
        linkNames_.clear();
        for (uint16_t question : {RTM_GETLINK, RTM_GETADDR, RTM_GETROUTE}) {
            // The longest of the three families' headers; the kernel reads what it needs.
            ifinfomsg header = {};
            RtRequest request(question, NLM_F_DUMP, &header, sizeof header);
            int answer = requests_.Ask(&request, [this, facts](const nlmsghdr *message) {
                Statement statement = Read(message);
                if (statement.valid) {
                    (*facts)[statement.key] = statement.text;
                }
            });
            error = answer != 0 ? answer : error;
        }
    }
    // A picture that changed while it was taken will do: the announcements bring the rest.
    if (error != 0 && error != EAGAIN) {
        Complain("cannot read the state of the network: %s", strerror(error));
        return false;
    }
    return true;
}

bool KernelView::Follow(Facts *facts) {
    bool linkWentDown = false;
    bool received = announcements_.TakeAnnouncements([&](const nlmsghdr *message) {
        Statement statement = Read(message);
        if (statement.valid && statement.removed) {
            facts->Remove(statement.key);
        } else if (statement.valid) {
            facts->Set(statement.key, statement.text);
        }
        linkWentDown = linkWentDown || statement.linkWentDown;
    });
    return received && !linkWentDown;
}
