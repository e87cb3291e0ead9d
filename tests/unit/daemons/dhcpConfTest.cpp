// dhcpd.conf as it is understood, and as dnsmasq is told it.
#include <gtest/gtest.h>

#include "daemons/zelan-dhcpd/dnsmasqConf.h"

namespace {

// The lines for dnsmasq that tell of networks, options and hosts, without those that every configuration has;
// or the problem as "LINE: TEXT", with "beyond " before what only another server may know.
std::string Converted(const std::string &text) {
    std::vector<DhcpStatement> statements;
    DhcpFault fault;
    if (!DhcpSyntax_Parse(text, &statements, &fault)) {
        return std::to_string(fault.line) + ": " + fault.reason;
    }
    DhcpMeaning meaning;
    std::string conf;
    DhcpProblem problem = DhcpMeaning_Read(statements, &meaning);
    if (problem.verdict == DhcpVerdict::SOUND) {
        problem = DnsmasqConf_Write(meaning, "zelan8", &conf);
    }
    if (problem.verdict != DhcpVerdict::SOUND) {
        return (problem.verdict == DhcpVerdict::BEYOND ? "beyond " : "") + std::to_string(problem.line) +
               ": " + problem.text;
    }
    constexpr std::string_view LAST_OF_ALL = "dhcp-option=255,0.0.0.0\n";
    return conf.substr(conf.find(LAST_OF_ALL) + LAST_OF_ALL.size());
}

std::string InSubnet(const std::string &statements, const std::string &outside = "") {
    return "subnet 10.1.2.0 netmask 255.255.255.0 {\ndefault-lease-time 600;max-lease-time 600;\n" +
           statements + "}\n" + outside;
}

TEST(DhcpConf, ToldToDnsmasq) {
    const std::string placed = "10.1.2.0,static,255.255.255.0,10.1.2.255,600\n";
    const struct {
        const char *condition;
        std::string text;
        std::string lines;
    } cases[] = {
        {"ranges, one backwards and one of a single address",
         InSubnet("range 10.1.2.9 10.1.2.7; range 10.1.2.11;"),
         "dhcp-range=10.1.2.7,10.1.2.9,255.255.255.0,10.1.2.255,600\n"
         "dhcp-range=10.1.2.11,10.1.2.11,255.255.255.0,10.1.2.255,600\n"},
        {"a client may ask for longer",
         "max-lease-time 0x708; default-lease-time 03410;\nmax-lease-time +7200;"
         "subnet 10.1.2.0 netmask 255.255.255.0 { }",
         "dhcp-match=set:asked,51\n"
         "dhcp-range=tag:asked,10.1.2.0,static,255.255.255.0,10.1.2.255,7200\n"
         "dhcp-range=tag:!asked,10.1.2.0,static,255.255.255.0,10.1.2.255,1800\n"},
        {"addresses, text, names and bytes, in odd writing",
         InSubnet("OPTION Domain-Name-Servers\n10.0.0.1 ,10.0.0.2;option domain-name local.domain;"
                  "option root-path \"a,\\x62\\143\"; option domain-search \"a.b\", \"c\";"
                  "option interface-mtu 0x5dc;option unknown-230 \";}#\\\"\";option unknown-231 ff; # }\n"),
         "dhcp-range=" + placed +
             "dhcp-option=6,10.0.0.1,10.0.0.2\ndhcp-option=15,\"local.domain\"\ndhcp-option=17,\"a,bc\"\n"
             "dhcp-option=26,05:dc\ndhcp-option=119,a.b,c\ndhcp-option=230,3b:7d:23:22\ndhcp-option=231,"
             "255b\n"},
        {"options of its own",
         "option gates code 201 = array of ip-address; option one code 202 = unsigned integer 8;\n" +
             InSubnet("option gates 10.0.0.1, 0.0.0.0; option one 65;"),
         "dhcp-range=" + placed + "dhcp-option=201,0a:00:00:01:00:00:00:00\ndhcp-option=202,65b\n"},
        {"a host in groups, and what it is told there",
         InSubnet("option routers 10.1.2.1; filename \"pxe\"; next-server 10.1.2.4;",
                  "group{option routers 10.1.2.2; next-server 10.1.2.3; group { host h {"
                  "hardware ethernet 2:0:0:A:b:c; fixed-address 10.1.2.5; option host-name \"n\"; } } }"),
         "dhcp-range=" + placed +
             "dhcp-option=3,10.1.2.1\ndhcp-boot=\"pxe\",,10.1.2.4\n"
             "dhcp-host=02:00:00:0a:0b:0c,set:h0,10.1.2.5\ndhcp-option=tag:h0,3,10.1.2.2\n"
             "dhcp-option=tag:h0,12,\"n\"\ndhcp-boot=tag:h0,\"pxe\",,10.1.2.3\n"},
        {"a host by its identifier, one that is refused, one for nobody, one by its label",
         "use-host-decl-names on;" +
             InSubnet("",
                      "host a { option dhcp-client-identifier \"ab\"; default-lease-time 600; }"
                      "host b { hardware ethernet 2:0:0:0:0:1; deny booting; } host c { }"),
         "dhcp-range=" + placed +
             "dhcp-host=id:61:62,set:h0\ndhcp-option=tag:h0,12,\"a\"\n"
             "dhcp-host=02:00:00:00:00:01,set:h1,ignore\ndhcp-option=tag:h1,12,\"b\"\n"},
        {"pools",
         InSubnet("pool{range 10.1.2.7;deny unknown-clients;} pool{allow unknown-clients;range 10.1.2.8;}"),
         "dhcp-range=tag:known,10.1.2.7,10.1.2.7,255.255.255.0,10.1.2.255,600\n"
         "dhcp-range=tag:!known,10.1.2.8,10.1.2.8,255.255.255.0,10.1.2.255,600\n"},
        {"two subnets on one wire",
         "max-lease-time 600; shared-network w { option routers 10.1.2.1; subnet 10.1.2.0 netmask "
         "255.255.255.0 {}"
         "subnet 10.1.3.0 netmask 255.255.255.0 { option routers 10.1.3.1; } }",
         "dhcp-range=set:s0," + placed +
             "dhcp-option=tag:s0,3,10.1.2.1\n"
             "dhcp-range=set:s1,10.1.3.0,static,255.255.255.0,10.1.3.255,600\n"
             "dhcp-option=tag:s1,3,10.1.3.1\nshared-network=zelan8,10.1.3.1\n"},
        {"what changes nothing",
         "ddns-update-style none; ddns-updates on; ping-check off; allow client-updates;; always-broadcast "
         "on;" +
             InSubnet(""),
         "dhcp-range=" + placed},
    };
    for (const auto &row : cases) {
        EXPECT_EQ(row.lines, Converted(row.text)) << row.condition;
    }
}

TEST(DhcpConf, RefusedWithLineAndReason) {
    const std::pair<std::string, const char *> cases[] = {
        {"subnet 10.1.2.0 netmask 255.255.255.0 {\n",
         "1: the block of 'subnet 10.1.2.0 netmask 255.255.255.0' is"},
        {"\n}", "2: no block is open"},
        {InSubnet("option routers 10.1.2.1\n"), "4: semicolon expected behind 'option routers 10.1.2.1'"},
        {"\noption x \"abc;\n", "2: the text in quotation marks"},
        {"{ }", "1: nothing stands before {"},
        {std::string(60, '{'), "1: nothing"},
        {"default-lease-time 1800;", "1: it declares no subnet"},
        {"default-lease-time soon;", "1: 'default-lease-time soon'"},
        {"max-lease-time 4294967296;", "1: 'max-lease-time"},
        {"subnet 10.1.2.0 netmask 255.0.255.0 { }", "1: 'subnet"},
        {InSubnet("range 10.1.2.5 10.1.3.5;"),
         "3: 'range 10.1.2.5 10.1.3.5': the range is not in its subnet"},
        {"range 10.1.2.5;" + InSubnet(""), "1: 'range 10.1.2.5': it does not belong here"},
        {InSubnet("option routers 10.1.2.256;"), "3: 'option routers 10.1.2.256'"},
        {InSubnet("option routers 10.1.2.1,;"), "3: 'option routers"},
        {InSubnet("option ip-forwarding perhaps;"), "3: 'option ip-forwarding perhaps'"},
        {InSubnet("option interface-mtu 65536;"), "3: 'option interface-mtu 65536'"},
        {InSubnet("", "host h { hardware ethernet 02:00; }"), "4: 'hardware ethernet 02:00'"},
        {"class \"x\" {}" + InSubnet(""), "beyond 1: 'class \"x\"'"},
        {"\nsurprise me;" + InSubnet(""), "beyond 2: 'surprise me'"},
        {InSubnet("option routers gate.example;"), "beyond 3: 'option routers gate.example'"},
        {InSubnet("option host-name = concat(\"a\", \"b\");"), "beyond 3:"},
        {InSubnet("option routers 0.0.0.0;"), "beyond 3: an option with such a value"},
        {InSubnet("option root-path \"a\\nb\";"), "beyond 3: an option with such a value"},
        {InSubnet("filename \"a\\\\b\"; next-server 1.2.3.4;"), "beyond 1: 'filename'"},
        {InSubnet("filename \"a\";"), "beyond 1: 'filename' or 'server-name' without"},
        {InSubnet("option dhcp-renewal-time 300;"), "beyond 3: 'option dhcp-renewal-time 300'"},
        {InSubnet("default-lease-time 60;"), "beyond 3: a lease time below 120 seconds"},
        {InSubnet("if known { }"), "beyond 3: 'if known'"},
        {InSubnet("ping-check true;"), "beyond 3: 'ping-check true'"},
        {InSubnet("pool { range 10.1.2.7; allow members of \"x\"; }"), "beyond 3:"},
        {InSubnet("",
                  "host a{hardware ethernet 2:0:0:0:0:1;fixed-address 10.1.2.3;}"
                  "host b{hardware ethernet 2:0:0:0:0:2;fixed-address 10.1.2.3;}"),
         "beyond 4: a fixed address of several hosts"},
    };
    for (const auto &[text, problem] : cases) {
        const std::string converted = Converted(text);
        EXPECT_TRUE(converted.starts_with(problem)) << text << "\n" << converted;
    }
}

}  // namespace
