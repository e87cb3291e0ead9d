// What the doctor makes of what it has read, also of what others have written: rules of foreign firewalls,
// and frames of guests.
#include <gtest/gtest.h>

#include <functional>

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

std::string Match(const std::string &left, const std::string &right, const char *op = "==") {
    return R"({"match":{"op":")" + std::string(op) + R"(","left":{)" + left + R"(},"right":)" + right + "}},";
}

std::string Name(const char *key, const char *name) {
    return Match(R"("meta":{"key":")" + std::string(key) + "\"}", std::string("\"") + name + "\"");
}

std::string Policy(const char *family, const char *table, const char *hook) {
    return R"(,{"chain":{"family":")" + std::string(family) + R"(","table":")" + table +
           R"(","name":"g","hook":")" + hook + R"(","policy":"drop"}})";
}

// The rules with the networks of ours that they meet, as the doctor shows them; others in parentheses.
std::string Shown(const std::vector<DropRule> &rules) {
    std::string text;
    for (const DropRule &rule : rules) {
        const bool met = Meets(rule, {"zelan-up8", "eth0"}, ParseSubnet("10.7.8.0/24").value_or(Subnet()));
        text += (met ? "" : "(") + rule.rule + (met ? ";" : ");");
    }
    return text;
}

TEST(EditorFirewall, RulesThatMeetANetworkAreToldFromThoseThatDoNot) {
    const std::string drop = R"({"drop":null})";
    const std::string accept = R"({"accept":null})";
    const std::string ours = Name("iifname", "zelan-up*");
    const std::string docker = Name("oifname", "docker0");
    const std::string source = R"("payload":{"protocol":"ip","field":"saddr"})";
    const std::string target = R"("payload":{"protocol":"ip","field":"daddr"})";
    const std::string input = R"("meta":{"key":"iifname"})";
    std::string each;
    for (const std::string &match :
         {std::string(), ours, docker, ours + docker, ours + Name("oif", "eth0"), Name("iif", "eth"),
          Name("mark", "eth0"), Match(input, "\"eth0\"", "!="), Match(input, "{\"set\":[]}"),
          Match(R"("payload":{"protocol":"tcp","field":"dport"})", "25"),
          Match(source, R"({"prefix":{"addr":"10.9.0.0","len":16}})"),
          Match(target, R"({"prefix":{"addr":"10.7.3.0","len":16}})"), Match(target, "\"10.7.8.9\""),
          Match(target, "\"10.7.8.9\"", "!="), Match(source, "\"@blocked\""),
          std::string(R"({"limit":{"rate":1}},)"),
          std::string(R"({"counter":{"packets":1}},{"log":null},{},7,)")}) {
        each += Rule("f", match + drop);
    }
    EXPECT_EQ(
        "drop;interface zelan-up* drop;(interface docker0 drop);(interface zelan-up* interface docker0 drop);"
        "interface zelan-up* interface eth0 drop;(interface eth "
        "drop);(drop);(drop);(drop);(drop);(10.9.0.0/16 drop);"
        "10.7.0.0/16 drop;10.7.8.9/32 drop;(drop);(drop);(drop);drop;",
        Shown(ParseDropRules(Ruleset(each))));
    const struct {
        std::string rules;
        const char *shown;
    } cases[] = {
        {Rule("f", ours + accept) + Rule("f", drop), "(drop);"},
        {Rule("f", drop) + Rule("f", ours + accept), "drop;"},
        {Rule("f", docker + accept) + Rule("f", drop), "drop;"},
        {Rule("g", ours + accept) + Rule("f", drop), "drop;"},
        {Rule("f", ours), ""},
        {Rule("sub", drop), ""},
        {Rule("sub", drop) + Rule("f", R"({"jump":{"target":"sub"}})"), "drop;"},
        {Rule("end", drop) + Rule("sub", R"({"goto":{"target":"end"}})") +
             Rule("f", R"({"jump":{"target":"sub"}})"),
         "drop;"},
        {Rule("sub", drop) + Rule("other", R"({"jump":{"target":"sub"}})"), ""},
        {Rule("f", R"({"reject":{"type":"icmp"}})"), "reject;"},
        {Policy("ip", "u", "forward"), "policy drop;"},
        {Policy("ip", "u", "forward") + R"(,{"rule":{"family":"ip","table":"u","chain":"g","expr":[)" + ours +
             accept + "]}}",
         "(policy drop);"},
        {Policy("ip6", "u", "forward") + Policy("inet", "zelan", "forward") +
             Policy("ip", "zelan-x", "forward") + Policy("ip", "zelan_x", "forward") +
             Policy("ip", "u", "input"),
         ""},
        {Policy("ip", "zelanx", "forward"), "policy drop;"},
        {R"(,{"rule":7},{"chain":{"family":3}},null,[])", ""},
    };
    for (const auto &row : cases) {
        EXPECT_EQ(row.shown, Shown(ParseDropRules(Ruleset(row.rules)))) << row.rules;
    }
    EXPECT_EQ("table inet t chain f", ParseDropRules(Ruleset(Rule("f", drop))).at(0).place);
    EXPECT_TRUE(ParseDropRules("no JSON").empty());
    EXPECT_EQ(
        "-P FORWARD DROP;(-A FORWARD -i a -j DROP);(-A FORWARD -j REJECT --reject-with x);-A FORWARD -j "
        "DROP;",
        Shown(
            ParseLegacyRules("-P FORWARD DROP\n-P FORWARD ACCEPT\n-A FORWARD -i a -j DROP\n"
                             "-A FORWARD -j REJECT --reject-with x\n-A FORWARD -j DROP\n-A FORWARD -j X\n")));
}

std::string Hex(const Frame &frame) {
    std::string text;
    for (const uint8_t byte : frame) {
        char digits[3];
        snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

// The length from which on a frame is read, and the bytes that have to be as they are.
std::string Needs(const Frame &frame, const std::function<bool(std::span<const uint8_t>)> &isRead) {
    size_t size = 0;
    while (size <= frame.size() &&
           !isRead(Frame(frame.begin(), frame.begin() + static_cast<ptrdiff_t>(size)))) {
        size++;
    }
    std::string text = std::to_string(size) + ":";
    for (size_t offset = 0; offset < frame.size(); offset++) {
        Frame spoilt = frame;
        spoilt[offset] ^= 0x80U;
        if (!isRead(spoilt)) {
            text += ' ' + std::to_string(offset);
        }
    }
    return text;
}

TEST(EditorFrames, QuestionsAreWellFormedAndAnswersReadWholeOrNotAtAll) {
    const Place self = {{2, 3, 4, 5, 6, 7}, 0x0a070809};
    const Place router = {{10, 11, 12, 13, 14, 15}, 0x0a070802};
    const std::string toAll = "ffffffffffff020304050607";
    const std::string toRouter = "0a0b0c0d0e0f020304050607";
    Frame discover = DhcpDiscover(self.mac, 0x12345678);
    EXPECT_EQ(toAll + "08004500011000000000401179de00000000ffffffff0044004300fc0000010106001234567800008000" +
                  std::string(32, '0') + "020304050607" + std::string(404, '0') + "63825363350101ff",
              Hex(discover));
    Frame question = ArpRequest(self, router.address);
    EXPECT_EQ(toAll + "08060001080006040001020304050607" + "0a0708090000000000000a070802", Hex(question));
    Frame name = DnsQuestion(self, router, 0x1234);
    EXPECT_EQ(toRouter + "08004500003700000000" + "4011569e0a0708090a070802c385003500230000" +
                  "123401000001000000000000096c6f63616c686f73740000010001",
              Hex(name));
    Frame echo = EchoRequest(self, {router.mac, 0xcb0071fe}, 0x1234);
    EXPECT_EQ(toRouter + "08004500001c0000000040012bd30a070809cb0071fe0800e5ca12340001", Hex(echo));

    std::swap(discover[35], discover[37]);  // the ports
    discover[42] = 2;
    discover[58] = 10;
    const auto offers = [](uint32_t number) {
        return [number](std::span<const uint8_t> frame) { return DhcpOffer(frame, number).has_value(); };
    };
    EXPECT_EQ(0x0a000000U, DhcpOffer(discover, 0x12345678));
    EXPECT_EQ("278: 12 13 23 34 35 36 37 42 46 47 48 49", Needs(discover, offers(0x12345678)));
    question[21] = 2;
    EXPECT_EQ(self.mac, ArpReply(question, self.address));
    EXPECT_EQ("42: 12 13 20 21 28 29 30 31",
              Needs(question, [&](auto frame) { return ArpReply(frame, self.address).has_value(); }));
    std::swap_ranges(name.begin() + 34, name.begin() + 36, name.begin() + 36);
    name[45] = 0x82;
    EXPECT_EQ(2U, DnsAnswer(name, 0x1234));
    EXPECT_EQ("46: 12 13 23 34 35 36 37 42 43",
              Needs(name, [](auto frame) { return DnsAnswer(frame, 0x1234).has_value(); }));
    echo[34] = 0;
    EXPECT_EQ("42: 12 13 23 34 38 39", Needs(echo, [](auto frame) { return IsEchoReply(frame, 0x1234); }));
    // A header with options; one that claims to be longer than the frame.
    echo.insert(echo.begin() + 34, {1, 1, 1, 1});
    echo[14] = 0x46;
    EXPECT_TRUE(IsEchoReply(echo, 0x1234));
    echo[14] = 0x4f;
    EXPECT_FALSE(IsEchoReply(echo, 0x1234));
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
    after.host.config.mappings["eth1"] = 8;
    after.details[8].leases.clear();
    after.details[8].guests = {{.port = "tap0", .mac = "02:00:00:00:00:02", .address = {}, .name = ""}};
    after.details[9].leases = {{0x0a070909, "02:00:00:00:00:03", "", {}, {}, false}};
    after.foreign = {{ParseSubnet("10.7.0.0/16").value_or(Subnet()), "the bridge br0"},
                     {ParseSubnet("10.8.0.0/16").value_or(Subnet()), "the bridge br1"}};
    std::string text;
    for (const auto &events : {Compare(before, after), Compare(after, before)}) {
        for (const Event &event : events) {
            text += std::to_string(event.network) + " " + event.kind + " " + event.text + "; ";
        }
    }
    EXPECT_EQ(
        "-1 database-changed set add_bridge_mapping eth1 8; 8 service-ended nat; 8 lease-ended 10.7.8.9 "
        "02:00:00:00:00:01 web; "
        "8 guest-plugged tap0 02:00:00:00:00:02; 8 overlap-appeared 10.7.0.0/16 of the bridge br0; "
        "9 lease-given 10.7.9.9 02:00:00:00:00:03; "
        "-1 database-changed removed add_bridge_mapping eth1 8; 8 service-started nat; 8 lease-given "
        "10.7.8.9 02:00:00:00:00:01 web; "
        "8 guest-unplugged tap0 02:00:00:00:00:02; 8 overlap-gone 10.7.0.0/16 of the bridge br0; "
        "9 lease-ended 10.7.9.9 02:00:00:00:00:03; ",
        text);
}

}  // namespace
