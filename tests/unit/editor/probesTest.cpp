// What the doctor reads that others have written: rules of foreign firewalls, and frames of guests.
#include <gmock/gmock.h>

#include "apps/zelan/posix/harbrelctl/probes/changes.h"
#include "apps/zelan/posix/harbrelctl/probes/firewall.h"
#include "apps/zelan/posix/harbrelctl/probes/frames.h"

namespace {

constexpr const char *CHAIN =
    R"({"chain":{"family":"inet","table":"t","name":"f","type":"filter","hook":"forward","prio":0,"policy":"accept"}})";

std::string Ruleset(const std::string &rules) {
    return std::string("{\"nftables\":[") + CHAIN + rules + "]}";
}

std::string Rule(const std::string &chain, const std::string &expressions) {
    return R"(,{"rule":{"family":"inet","table":"t","chain":")" + chain + R"(","expr":[)" + expressions +
           "]}}";
}

TEST(EditorFirewall, RulesThatMeetANetworkAreToldFromThoseThatDoNot) {
    const std::string drop = R"({"drop":null})";
    const std::string ours =
        R"({"match":{"op":"==","left":{"meta":{"key":"iifname"}},"right":"zelan-up*"}},)";
    const std::string docker =
        R"({"match":{"op":"==","left":{"meta":{"key":"oifname"}},"right":"docker0"}},)";
    const std::string port =
        R"({"match":{"op":"==","left":{"payload":{"protocol":"tcp","field":"dport"}},"right":25}},)";
    const std::string elsewhere =
        R"({"match":{"op":"==","left":{"payload":{"protocol":"ip","field":"saddr"}},"right":{"prefix":{"addr":"10.9.0.0","len":16}}}},)";
    const struct {
        std::string rules;
        int meeting;
    } cases[] = {
        {Rule("f", drop), 1},
        {Rule("f", ours + drop), 1},
        {Rule("f", docker + drop), 0},
        {Rule("f", ours + docker + drop), 0},
        {Rule("f", port + drop), 0},
        {Rule("f", elsewhere + drop), 0},
        {Rule("f", ours + R"({"accept":null})") + Rule("f", drop), 0},
        {Rule("f", docker + R"({"accept":null})") + Rule("f", drop), 1},
        {Rule("sub", drop), 0},
        {Rule("sub", drop) + Rule("f", R"({"jump":{"target":"sub"}})"), 1},
        {Rule("f", R"({"counter":{"packets":1,"bytes":2}},{"log":null},{"reject":{"type":"icmp"}})"), 1},
        {R"(,{"chain":{"family":"ip","table":"u","name":"g","hook":"forward","policy":"drop"}})", 1},
        {R"(,{"chain":{"family":"ip6","table":"u","name":"g","hook":"forward","policy":"drop"}})", 0},
        {R"(,{"chain":{"family":"inet","table":"zelan","name":"g","hook":"forward","policy":"drop"}})", 0},
        {R"(,{"chain":{"family":"ip","table":"u","name":"g","hook":"input","policy":"drop"}})", 0},
        {R"(,{"rule":7},{"chain":{"family":3}},null,[])", 0},
    };
    const Subnet subnet = ParseSubnet("10.7.8.0/24").value_or(Subnet());
    for (const auto &row : cases) {
        int meeting = 0;
        for (const DropRule &rule : ParseDropRules(Ruleset(row.rules))) {
            meeting += Meets(rule, {"zelan-up8", "eth0"}, subnet) ? 1 : 0;
        }
        EXPECT_EQ(row.meeting, meeting) << row.rules;
    }
    EXPECT_TRUE(ParseDropRules("no JSON").empty());
}

TEST(EditorFrames, AnswersAreReadWholeOrNotAtAll) {
    const Mac mac = {2, 0, 0, 0, 0, 1};
    Frame offer = DhcpDiscover(mac, 7);
    std::swap(offer[35], offer[37]);  // the ports, 68 and 67
    offer[42] = 2;
    offer[58] = 10;
    EXPECT_EQ(0x0a000000U, DhcpOffer(offer, 7));
    EXPECT_EQ(std::nullopt, DhcpOffer(offer, 8)) << "somebody else's";
    Frame reply = ArpRequest({mac, 0x0a000001}, 0x0a000002);
    reply[21] = 2;
    EXPECT_EQ(mac, ArpReply(reply, 0x0a000001));
    EXPECT_EQ(std::nullopt, ArpReply(reply, 0x0a000002));
    Frame echo = EchoRequest({mac, 1}, {mac, 2}, 9);
    echo[34] = 0;
    EXPECT_TRUE(IsEchoReply(echo, 9));
    // Cut at every byte, nothing is read behind the end; a header that claims to be longer neither.
    for (const Frame &frame : {offer, reply, echo}) {
        for (size_t size = 0; size < frame.size(); size++) {
            const Frame cut(frame.begin(), frame.begin() + static_cast<ptrdiff_t>(size));
            EXPECT_FALSE(size < 42 &&
                         (DhcpOffer(cut, 7) || ArpReply(cut, 0x0a000001) || IsEchoReply(cut, 9)));
            (void)DnsAnswer(cut, 0);
        }
    }
    echo[14] = 0x4f;
    EXPECT_FALSE(IsEchoReply(echo, 9));
}

TEST(EditorChanges, EachDifferenceIsOneEvent) {
    Snapshot before;
    before.host.config.networks[8].stored[FIELD_SUBNET] = "10.7.8.0";
    before.host.config.networks[8].stored[FIELD_MASK] = "255.255.255.0";
    before.host.networks[8].services[SERVICE_NAT].running = true;
    before.details[8].leases = {{0x0a070809, "02:00:00:00:00:01", "web", {}, {}, false}};
    Snapshot after = before;
    EXPECT_TRUE(Compare(before, after).empty());
    after.host.networks[8].services[SERVICE_NAT].running = false;
    after.details[8].leases.clear();
    after.details[8].guests = {{.port = "tap0", .mac = "", .address = {}, .name = ""}};
    after.foreign = {{ParseSubnet("10.7.0.0/16").value_or(Subnet()), "the bridge br0"}};
    std::string kinds;
    for (const Event &event : Compare(before, after)) {
        kinds += std::string(event.kind) + " " + event.subject + "\n";
    }
    EXPECT_EQ("service-ended nat\nlease-ended 10.7.8.9\nguest-plugged tap0\noverlap-appeared 10.7.0.0/16\n",
              kinds);
}

}  // namespace
