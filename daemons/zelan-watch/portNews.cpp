#include "daemons/zelan-watch/portNews.h"

#include <linux/filter.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "daemons/common/complain.h"

bool PortNews_Open(RtSocket *socket) {
    sock_filter family[] = {
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, NLMSG_HDRLEN + offsetof(ifinfomsg, ifi_family)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AF_BRIDGE, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, 0xffffffff),
        BPF_STMT(BPF_RET | BPF_K, 0),
    };
    const sock_fprog program = {std::size(family), family};
    if (!socket->Open(RTMGRP_LINK)) {
        return false;
    }
    if (setsockopt(socket->descriptor(), SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) != 0) {
        Complain("filter of announcements: %s", strerror(errno));
        return false;
    }
    return true;
}

bool PortNews_HasLeft(RtSocket *socket) {
    bool hasLeft = false;
    bool complete = socket->TakeAnnouncements(
        [&hasLeft](const nlmsghdr *message) { hasLeft = hasLeft || message->nlmsg_type == RTM_DELLINK; });
    return hasLeft || !complete;
}
