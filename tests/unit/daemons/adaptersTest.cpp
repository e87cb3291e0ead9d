#include "daemons/zelan-bridge/adapters.h"

#include <gtest/gtest.h>
#include <net/if_arp.h>

#include <sstream>

namespace {

// By their indexes from 1: name, kind, what it stands on (-1 for elsewhere), master and group.
constexpr char LINKS[] =
    "eth - 0 0 0    port - 0 10 0      Bond bond 0 0 0       team team 0 0 0     tap tun 0 0 0 "
    "v6 vlan 5 0 0  v7 vlan -1 0 0     cable veth -1 0 0     pair veth 8 11 0    bridge bridge 0 0 0 "
    "docker bridge 0 0 0  lo - 0 0 0   ours - 0 0 1192       switch bridge 0 0 1190  guest - 0 14 0 "
    "radio - 0 0 0  ZELANx - 0 0 0     onOurs vlan 13 0 0    v19 vlan 1 0 0      v20 vlan 19 0 0 "
    "v21 vlan 20 0 0  v22 vlan 21 0 0  gone vlan 99 0 0";

HostLinks HostsLinks() {
    HostLinks links;
    LinkInfo link;
    std::istringstream words(LINKS);
    while (words >> link.name >> link.kind >> link.lower >> link.master >> link.group) {
        link.index++;
        link.kind = link.kind == "-" ? "" : link.kind;
        link.lowerIsElsewhere = link.lower < 0;
        link.vlan = static_cast<uint16_t>(link.index);
        link.type = link.name == "radio" ? ARPHRD_IEEE80211 : ARPHRD_ETHER;
        link.flags = link.name == "lo" ? IFF_LOOPBACK : 0;
        links.byIndex[link.index] = link;
    }
    return links;
}

std::string Taken(const AdapterRule &rule, const HostLinks &links) {
    std::string names;
    for (const auto &[index, link] : links.byIndex) {
        names += Adapters_Takes(rule, link, links) ? link.name + " " : "";
    }
    return names;
}

TEST(Adapters, AreWhatLeadsOutOfTheHostOrIsNamed) {
    HostLinks links = HostsLinks();
    EXPECT_EQ("eth Bond team v7 bridge v19 v20 v21 ", Taken({true, {}}, links));
    EXPECT_EQ("Bond team v7 v19 v20 v21 ", Taken({true, {"ETH", "bridge"}}, links));
    const AdapterRule named = {false, {"bond", "tap", "port", "ours", "guest", "lo", "zelanX", "radio"}};
    EXPECT_EQ("port Bond tap ZELANx ", Taken(named, links));
    links.hostIsContainer = true;
    EXPECT_EQ("eth Bond team v7 cable bridge v19 v20 v21 ", Taken({true, {}}, links));
    links.byIndex[9].lowerIsElsewhere = true;
    EXPECT_NE(std::string::npos, Taken({true, {}}, links).find("docker")) << "a bridge with a way out";
    EXPECT_EQ(std::vector<uint16_t>{19}, links.VlansOn(1));
    EXPECT_EQ(std::vector<uint16_t>{}, links.VlansOn(-1)) << "on what is elsewhere";
    EXPECT_EQ(std::vector<uint16_t>{}, links.VlansOn(8)) << "a pair is none";
}

}  // namespace
