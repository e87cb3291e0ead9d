#include "daemons/bridgefilter/tcFilter.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/pkt_cls.h>
#include <linux/pkt_sched.h>

#include <cerrno>
#include <set>

namespace {

// Behind filters that an administrator has put at the usual low preferences, before those without one.
constexpr uint32_t PREFERENCE = 1190;
constexpr uint32_t HANDLE_BASE = 0x11900000;

uint32_t Parent(Direction direction) {
    return TC_H_MAKE(TC_H_CLSACT, direction == Direction::IN ? TC_H_MIN_INGRESS : TC_H_MIN_EGRESS);
}

tcmsg FilterHeader(int interface, Direction direction, int network) {
    tcmsg header = {};
    header.tcm_ifindex = interface;
    header.tcm_handle = HANDLE_BASE | static_cast<uint32_t>(network);
    header.tcm_parent = Parent(direction);
    header.tcm_info = TC_H_MAKE(PREFERENCE << 16, htons(ETH_P_ALL));
    return header;
}

// The place where such filters are attached. It may be there for somebody else's, and stays.
int EnsureQueue(RtSocket *socket, int interface) {
    tcmsg header = {};
    header.tcm_ifindex = interface;
    header.tcm_handle = TC_H_MAKE(TC_H_CLSACT, 0);
    header.tcm_parent = TC_H_CLSACT;
    RtRequest request(RTM_NEWQDISC, NLM_F_CREATE | NLM_F_EXCL, &header, sizeof header);
    request.PutText(TCA_KIND, "clsact");
    int error = socket->Do(&request);
    return error == EEXIST ? 0 : error;
}

// Few of a host's interfaces have one.
std::set<int> InterfacesWithQueue(RtSocket *socket) {
    constexpr int ATTEMPTS = 10;
    std::set<int> interfaces;
    int error = EAGAIN;
    for (int attempt = 0; error == EAGAIN && attempt < ATTEMPTS; attempt++) {
        tcmsg all = {};
        RtRequest request(RTM_GETQDISC, NLM_F_DUMP, &all, sizeof all);
        error = socket->Ask(&request, [&interfaces](const nlmsghdr *message) {
            auto *queue = static_cast<const tcmsg *>(NLMSG_DATA(message));
            if (message->nlmsg_type == RTM_NEWQDISC && queue->tcm_parent == TC_H_CLSACT) {
                interfaces.insert(queue->tcm_ifindex);
            }
        });
    }
    return interfaces;
}

}  // namespace

int TcFilter_Attach(RtSocket *socket, int interface, Direction direction, int network, int program) {
    int error = EnsureQueue(socket, interface);
    if (error != 0) {
        return error;
    }
    tcmsg header = FilterHeader(interface, direction, network);
    RtRequest request(RTM_NEWTFILTER, NLM_F_CREATE, &header, sizeof header);
    request.PutText(TCA_KIND, "bpf");
    size_t options = request.Open(TCA_OPTIONS);
    request.Put32(TCA_BPF_FD, static_cast<uint32_t>(program));
    request.PutText(TCA_BPF_NAME, "zelan-bridge");
    request.Put32(TCA_BPF_FLAGS, TCA_BPF_FLAG_ACT_DIRECT);
    request.Close(options);
    return socket->Do(&request);
}

void TcFilter_Remove(RtSocket *socket, int interface, int network) {
    for (Direction direction : {Direction::IN, Direction::OUT}) {
        tcmsg header = FilterHeader(interface, direction, network);
        RtRequest request(RTM_DELTFILTER, 0, &header, sizeof header);
        request.PutText(TCA_KIND, "bpf");
        socket->Do(&request);
    }
}

void TcFilter_RemoveAll(RtSocket *socket, int network) {
    for (int interface : InterfacesWithQueue(socket)) {
        TcFilter_Remove(socket, interface, network);
    }
}
