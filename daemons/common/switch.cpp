#include "daemons/common/switch.h"

#include <poll.h>

#include <cerrno>
#include <cstring>

#include "daemons/common/complain.h"
#include "daemons/common/linkGroup.h"

namespace {

// How long an interface may take to go for good.
constexpr int LEFTOVER_ATTEMPTS = 150;
constexpr int LEFTOVER_POLL_MILLISECONDS = 2;

// IFLA_BR_FDB_MAX_LEARNED of <linux/if_link.h>, which headers before Linux 6.7 lack; such kernels skip it.
constexpr uint16_t BRIDGE_MAX_LEARNED = 49;
// How many addresses a switch learns: guests invent them, and each takes kernel memory for five minutes.
constexpr uint32_t MAX_LEARNED_ADDRESSES = 4096;

// The switch itself is no endpoint: it answers no ARP and has no IPv6, so that guests reach the host through
// nothing but an interface that was configured for it. Multicast goes to every port, as no querier is at
// hand.
int MakeBridge(RtSocket *socket, const char *name) {
    ifinfomsg header = {};
    header.ifi_flags = IFF_NOARP;
    header.ifi_change = IFF_NOARP;
    RtRequest request(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL, &header, sizeof header);
    request.PutText(IFLA_IFNAME, name);
    request.Put32(IFLA_GROUP, LINK_GROUP_CARRIER);
    size_t linkInfo = request.Open(IFLA_LINKINFO);
    request.PutText(IFLA_INFO_KIND, "bridge");
    size_t data = request.Open(IFLA_INFO_DATA);
    request.Put8(IFLA_BR_MCAST_SNOOPING, 0);
    request.Put32(BRIDGE_MAX_LEARNED, MAX_LEARNED_ADDRESSES);
    request.Close(data);
    request.Close(linkInfo);
    return socket->Do(&request);
}

// Without IPv6 before it is up. False after a line in the log.
bool BringUp(RtSocket *socket, const char *name, int index) {
    if (!Link_ForbidIpv6(name)) {
        return false;
    }
    int error = Link_SetFlags(socket, index, IFF_UP, IFF_UP);
    if (error != 0) {
        Complain("cannot bring %s up: %s", name, strerror(error));
    }
    return error == 0;
}

// False after a line in the log.
bool TakeIntoService(RtSocket *socket, const VethPlan &plan, SwitchPort *port) {
    LinkInfo link;
    int error = Link_Find(socket, plan.name, &link);
    port->portIndex = link.index;
    if (error == 0 && plan.peerNamespace < 0) {
        error = Link_Find(socket, plan.peerName, &link);
        port->peerIndex = link.index;
    }
    if (error != 0) {
        Complain("cannot find the interfaces %s and %s: %s", plan.name, plan.peerName, strerror(error));
        return false;
    }
    return (plan.peerNamespace >= 0 || Link_ForbidIpv6(plan.peerName)) &&
           BringUp(socket, plan.name, port->portIndex);
}

}  // namespace

std::string Switch_Name(int network) {
    return "zelan-sw" + std::to_string(network);
}

int Switch_Ensure(RtSocket *socket, int network) {
    const std::string name = Switch_Name(network);
    LinkInfo link;
    int error = MakeBridge(socket, name.c_str());
    if (error == 0 || error == EEXIST) {
        error = Link_Find(socket, name.c_str(), &link);
    }
    if (error != 0) {
        Complain("cannot make the switch %s: %s", name.c_str(), strerror(error));
        return 0;
    }
    if (link.kind != "bridge" || link.group != LINK_GROUP_CARRIER) {
        Complain("%s exists already and belongs to somebody else", name.c_str());
        return 0;
    }
    return (link.flags & IFF_UP) != 0 || BringUp(socket, name.c_str(), link.index) ? link.index : 0;
}

bool Switch_MakePair(RtSocket *socket, const VethPlan &plan, SwitchPort *port) {
    int error = Link_MakeVeth(socket, plan);
    // What is put aside keeps its name until zelan-watch comes to remove it, or until the kernel has removed
    // the namespace that its other end was in, which it does behind the last process in there.
    for (int attempt = 0; error == EEXIST && attempt < LEFTOVER_ATTEMPTS; attempt++) {
        LinkInfo link;
        if (Link_Find(socket, plan.name, &link) == 0 && link.group != LINK_GROUP_DEAD) {
            break;
        }
        if (Link_DeleteGroup(socket, LINK_GROUP_DEAD) != 0) {
            poll(nullptr, 0, LEFTOVER_POLL_MILLISECONDS);
        }
        error = Link_MakeVeth(socket, plan);
    }
    if (error == EEXIST) {
        LinkInfo link;
        bool first = Link_Find(socket, plan.name, &link) == 0;
        Complain("%s exists already and belongs to somebody else", first ? plan.name : plan.peerName);
        return false;
    }
    if (error != 0) {
        Complain("cannot make the interfaces %s and %s: %s", plan.name, plan.peerName, strerror(error));
        return false;
    }
    return TakeIntoService(socket, plan, port);
}

bool Switch_MakePort(RtSocket *socket, int network, const char *portName, const char *peerName,
                     int peerNamespace, SwitchPort *port) {
    int master = Switch_Ensure(socket, network);
    uint32_t peerGroup = peerNamespace < 0 ? LINK_GROUP_HOST : LINK_GROUP_CARRIER;
    return master != 0 &&
           Switch_MakePair(socket, {portName, peerName, master, peerNamespace, LINK_GROUP_CARRIER, peerGroup},
                           port);
}
