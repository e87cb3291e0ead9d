#include "daemons/zelan-natd/router.h"

#include <cstdio>
#include <cstring>

#include "daemons/common/address.h"
#include "daemons/common/complain.h"
#include "daemons/common/file.h"
#include "daemons/common/linkGroup.h"
#include "daemons/common/namespace.h"
#include "daemons/firewall/hostForwarding.h"
#include "daemons/zelan-natd/routerTable.h"

namespace {

// Where the uplinks' subnets are cut from, four addresses for each network, in order of preference: twice
// carrier-grade NAT, then link-local, then benchmarking.
constexpr Ipv4 POOLS[] = {0x647ffc00, 0x647ff800, 0xa9fef000, 0xc613fc00};
constexpr int UPLINK_PREFIX = 30;
constexpr Ipv4 UPLINK_SIZE = 4;
constexpr Ipv4 HOST_OFFSET = 1;
constexpr Ipv4 ROUTER_OFFSET = 2;

bool Refused(const char *what, int error) {
    if (error != 0) {
        Complain("cannot %s: %s", what, strerror(error));
    }
    return error != 0;
}

// Brings an interface of the current namespace up with an address.
bool Raise(RtSocket *socket, const char *name, Ipv4 address, int prefix) {
    int link = static_cast<int>(if_nametoindex(name));
    return !Refused("give an interface its address", Address_Add(socket, link, address, prefix)) &&
           !Refused("bring an interface up", Link_SetFlags(socket, link, IFF_UP, IFF_UP));
}

bool SetUpInside(const NatConf &conf, const MacAddress &mac, const Router &router) {
    NamespaceVisit visit(router.space);
    RtSocket socket;
    if (!visit.entered() || !socket.Open()) {
        return false;
    }
    int guests = static_cast<int>(if_nametoindex(GUESTS_LINK));
    return !Refused("set the gateway's MAC address", Link_SetMac(&socket, guests, mac)) &&
           Raise(&socket, GUESTS_LINK, conf.gateway, conf.prefix) &&
           Raise(&socket, UPLINK_LINK, router.address, UPLINK_PREFIX) &&
           !Refused("add the router's default route", Route_AddDefault(&socket, router.hostAddress)) &&
           !Refused("let the router forward", File_Write("/proc/sys/net/ipv4/ip_forward", "1") ? 0 : errno);
}

// The host's own connections to a forward may have a loopback address at one end.
bool AllowLoopbackAddresses(const char *uplink) {
    std::string path = std::string("/proc/sys/net/ipv4/conf/") + uplink + "/route_localnet";
    return File_Write(path.c_str(), "1");
}

bool SetUpUplink(RtSocket *socket, const NatConf &conf, const Router &router) {
    return Raise(socket, router.uplink, router.hostAddress, UPLINK_PREFIX) &&
           !Refused("let the host forward what guests send",
                    HostForwarding_TurnOn(router.uplink) ? 0 : errno) &&
           (conf.forwards.empty() ||
            !Refused("let the host use its forwards", AllowLoopbackAddresses(router.uplink) ? 0 : errno));
}

}  // namespace

bool Router_Plan(RtSocket *socket, int network, const NatConf &conf, Router *router) {
    snprintf(router->uplink, sizeof router->uplink, "zelan-up%d", network);
    for (Ipv4 pool : POOLS) {
        Ipv4Subnet subnet = {pool + static_cast<Ipv4>(network) * UPLINK_SIZE, UPLINK_PREFIX};
        router->hostAddress = subnet.first() + HOST_OFFSET;
        router->address = subnet.first() + ROUTER_OFFSET;
        if (!conf.subnet().Contains(subnet.first()) && !subnet.Contains(conf.gateway) &&
            Route_IsUnknown(socket, router->hostAddress) && Route_IsUnknown(socket, router->address)) {
            return true;
        }
    }
    Complain("no subnet is free for the uplink of network %d", network);
    return false;
}

bool Router_Make(RtSocket *socket, int network, const NatConf &conf, const MacAddress &mac, Router *router,
                 CleanUp *cleanUp) {
    char portName[IFNAMSIZ];
    snprintf(portName, sizeof portName, "zelan-nt%d", network);
    SwitchPort guests;
    SwitchPort uplink;
    router->space = Namespace_Make();
    if (!router->space ||
        !Switch_MakePort(socket, network, portName, GUESTS_LINK, router->space.get(), &guests)) {
        return false;
    }
    cleanUp->links.push_back(guests.portIndex);
    if (!Switch_MakePair(
            socket,
            {router->uplink, UPLINK_LINK, 0, router->space.get(), LINK_GROUP_UPLINK, LINK_GROUP_CARRIER},
            &uplink)) {
        return false;
    }
    cleanUp->links.push_back(uplink.portIndex);
    return SetUpInside(conf, mac, *router) && SetUpUplink(socket, conf, *router);
}
