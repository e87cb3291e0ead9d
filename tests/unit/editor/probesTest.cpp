// What the doctor makes of what it has read, also of what others have written: rules of foreign firewalls,
// and frames of guests.
#include <gtest/gtest.h>

#include <functional>

#include "apps/zelan/posix/harbrelctl/probes/firewall.h"
#include "apps/zelan/posix/harbrelctl/probes/frames.h"
#include "tests/support/frames.h"

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

TEST(EditorFrames, AnswersAreReadWholeOrNotAtAll) {
    const Place self = {{2, 3, 4, 5, 6, 7}, 0x0a070809};
    const Place router = {{10, 11, 12, 13, 14, 15}, 0x0a070802};
    Frame discover = DhcpDiscover(self.mac, 0x12345678);
    Frame question = ArpRequest(self, router.address);
    Frame name = DnsQuestion(self, router, 0x1234);
    Frame echo = EchoRequest(self, router, 0x1234);
    const auto bytes = [](const Frame &frame) { return std::string(frame.begin(), frame.end()); };
    EXPECT_EQ(FromHex("ffffffffffff02030405060708004500011000000000401179de00000000ffffffff0044004300fc0000"
                      "010106001234567800008000" +
                      std::string(32, '0') + "020304050607" + std::string(404, '0') + "63825363350101ff"),
              bytes(discover));
    EXPECT_EQ(FromHex("ffffffffffff020304050607080600010800060400010203040506070a0708090000000000000a070802"
                      "0a0b0c0d0e0f020304050607080045000037000000004011569e0a0708090a070802c385003500230000"
                      "12340100000100000000000009 6c6f63616c686f7374 0000010001"
                      "0a0b0c0d0e0f02030405060708004500001c00000000400156c90a0708090a0708020800e5ca12340001"),
              bytes(question) + bytes(name) + bytes(echo));
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

}  // namespace
