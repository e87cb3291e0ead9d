#include "daemons/zelan-watch/switches.h"

#include <linux/filter.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <string_view>
#include <vector>

#include "daemons/common/complain.h"
#include "daemons/common/linkGroup.h"
#include "daemons/common/options.h"
#include "daemons/common/switch.h"

bool Switches_Is(const LinkInfo &link, int *network) {
    constexpr std::string_view PREFIX = "zelan-sw";
    return link.kind == "bridge" && link.group == LINK_GROUP_CARRIER && link.name.starts_with(PREFIX) &&
           Options_Number(std::string_view(link.name).substr(PREFIX.size()), SWITCH_MAX_NETWORK, network);
}

bool Guests::Begin(RtSocket *requests) {
    sock_filter portsAlone[] = {
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, NLMSG_HDRLEN + offsetof(ifinfomsg, ifi_family)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AF_BRIDGE, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, UINT32_MAX),
        BPF_STMT(BPF_RET | BPF_K, 0),
    };
    const sock_fprog program = {std::size(portsAlone), portsAlone};
    if (!news_.Open(RTMGRP_LINK)) {
        return false;
    }
    if (setsockopt(news_.descriptor(), SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) != 0) {
        Complain("filter of announcements: %s", strerror(errno));
        return false;
    }
    Survey(requests);
    return true;
}

bool Guests::TakeNews(RtSocket *requests) {
    bool hasLeft = false;
    bool complete = news_.TakeAnnouncements([&](const nlmsghdr *message) {
        auto *header = static_cast<const ifinfomsg *>(NLMSG_DATA(message));
        if (message->nlmsg_type == RTM_DELLINK) {
            networks_.erase(header->ifi_index);
            hasLeft = true;
        } else if (networks_.count(header->ifi_index) == 0) {
            Consider(requests, header->ifi_index);
        }
    });
    if (!complete) {
        Survey(requests);
    }
    return hasLeft || !complete;
}

// Asks about each network once, however many guests it has.
std::set<int> Guests::On(const std::function<bool(int)> &isWanted) const {
    std::set<int> ports;
    std::map<int, bool> wanted;
    for (const auto &[port, network] : networks_) {
        auto known = wanted.find(network);
        if (known == wanted.end()) {
            known = wanted.emplace(network, isWanted(network)).first;
        }
        if (known->second) {
            ports.insert(port);
        }
    }
    return ports;
}

void Guests::Survey(RtSocket *requests) {
    std::vector<int> ports;
    networks_.clear();
    Link_ForEach(requests, 0, [&ports](const LinkInfo &link) {
        if (link.master != 0 && !LinkGroup_IsOurs(link.group)) {
            ports.push_back(link.index);
        }
    });
    for (int port : ports) {
        Consider(requests, port);
    }
}

void Guests::Consider(RtSocket *requests, int port) {
    LinkInfo link;
    LinkInfo master;
    int network = -1;
    if (Link_Get(requests, port, &link) == 0 && link.master != 0 && !LinkGroup_IsOurs(link.group) &&
        Link_Get(requests, link.master, &master) == 0 && Switches_Is(master, &network)) {
        networks_[port] = network;
    }
}
