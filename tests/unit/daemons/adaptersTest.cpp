#include "daemons/zelan-bridge/adapters.h"

#include <gtest/gtest.h>
#include <net/if_arp.h>

#include "daemons/common/linkGroup.h"

namespace {

LinkInfo Link(int index, const char *name, const char *kind, int lower = 0, int master = 0,
              uint32_t group = 0) {
    LinkInfo link = {
        .index = index, .type = ARPHRD_ETHER, .master = master, .group = group, .name = name, .kind = kind};
    link.lower = lower;
    link.lowerIsElsewhere = lower < 0;
    link.vlan = static_cast<uint16_t>(index);
    return link;
}

HostLinks HostsLinks() {
    HostLinks links;
    for (LinkInfo link : {Link(1, "eth", ""),
                          Link(2, "port", "", 0, 10),
                          Link(3, "Bond", "bond"),
                          Link(4, "team", "team"),
                          Link(5, "tap", "tun"),
                          Link(6, "vlan6", "vlan", 5),
                          Link(7, "vlan7", "vlan", -1),
                          Link(8, "cable", "veth", -1),
                          Link(9, "pair", "veth", 8, 11),
                          Link(10, "bridge", "bridge"),
                          Link(11, "docker", "bridge"),
                          Link(12, "lo", ""),
                          Link(13, "ours", "", 0, 0, LINK_GROUP_HOST),
                          Link(14, "switch", "bridge", 0, 0, LINK_GROUP_CARRIER),
                          Link(15, "guest", "", 0, 14),
                          Link(16, "radio", ""),
                          Link(17, "ZELANx", ""),
                          Link(18, "onOurs", "vlan", 13),
                          Link(20, "vlan20", "vlan", 1),
                          Link(21, "vlan21", "vlan", 20),
                          Link(22, "vlan22", "vlan", 21),
                          Link(23, "vlan23", "vlan", 22),
                          Link(24, "gone", "vlan", 99)}) {
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
    EXPECT_EQ("eth Bond team vlan7 bridge vlan20 vlan21 vlan22 ", Taken({true, {}}, links));
    EXPECT_EQ("Bond team vlan7 vlan20 vlan21 vlan22 ", Taken({true, {"ETH", "bridge"}}, links));
    EXPECT_EQ("port Bond tap ZELANx ",
              Taken({false, {"bond", "tap", "port", "ours", "guest", "lo", "zelanX", "radio"}}, links));
    links.hostIsContainer = true;
    EXPECT_EQ("eth Bond team vlan7 cable bridge vlan20 vlan21 vlan22 ", Taken({true, {}}, links));
    links.byIndex[9].lowerIsElsewhere = true;
    EXPECT_NE(std::string::npos, Taken({true, {}}, links).find("docker")) << "a bridge with a way out";
}

TEST(Adapters, VlansAreThoseOfTheHostOnThem) {
    const HostLinks links = HostsLinks();
    EXPECT_EQ(std::vector<uint16_t>{20}, links.VlansOn(1));
    EXPECT_EQ(std::vector<uint16_t>{}, links.VlansOn(-1)) << "on what is elsewhere";
    EXPECT_EQ(std::vector<uint16_t>{}, links.VlansOn(8)) << "a pair is none";
}

}  // namespace
