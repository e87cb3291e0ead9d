// dhcpd.conf as it is understood, and as dnsmasq is told it.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <tuple>

#include "daemons/zelan-dhcpd/dnsmasqConf.h"

namespace {

// What every configuration begins with, and further on.
constexpr std::string_view BEGIN =
    "port=0\nbind-interfaces\nexcept-interface=lo\nno-hosts\nno-resolv\nno-ping\ndhcp-broadcast\n"
    "dhcp-no-override\npid-file\ninterface=zelan8\ndhcp-lease-max=";
constexpr std::string_view ALWAYS =
    "dhcp-option=3\ndhcp-option=6\ndhcp-option=12\ndhcp-option=15\ndhcp-option=28\n"
    "dhcp-option=255,0.0.0.0\n";

// What dnsmasq is told, from the number of leases on, without those lines; or the problem as "LINE: TEXT",
// with "beyond " before what only another server may know.
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
    const size_t place = conf.find(ALWAYS);
    if (!conf.starts_with(BEGIN) || place == std::string::npos) {
        return conf;
    }
    return conf.erase(place, ALWAYS.size()).substr(BEGIN.size());
}

std::string InSubnet(const std::string &statements, const std::string &outside = "") {
    return "subnet 10.1.2.0 netmask 255.255.255.0 {\ndefault-lease-time 600;max-lease-time 600;\n" +
           statements + "}\n" + outside;
}

TEST(DhcpConf, ToldToDnsmasq) {
    const std::string one = "1\ndhcp-ignore-clid\n";
    const std::string placed = "dhcp-range=10.1.2.0,static,255.255.255.0,10.1.2.255,600\n";
    const std::tuple<const char *, std::string, std::string> cases[] = {
        {"ranges, one backwards and one of a single address",
         InSubnet("range 10.1.2.9 10.1.2.7; range 10.1.2.11;"),
         "4\ndhcp-ignore-clid\ndhcp-range=10.1.2.7,10.1.2.9,255.255.255.0,10.1.2.255,600\n"
         "dhcp-range=10.1.2.11,10.1.2.11,255.255.255.0,10.1.2.255,600\n"},
        {"a range for BOOTP, and leases without end",
         "max-lease-time 4294967295; default-lease-time 4294967295;"
         "subnet 10.1.2.0 netmask 255.255.255.0 { range dynamic-bootp 10.1.2.0 10.1.2.255; }",
         "256\ndhcp-ignore-clid\ndhcp-range=10.1.2.0,10.1.2.255,255.255.255.0,10.1.2.255,infinite\n"
         "bootp-dynamic\n"},
        {"a client may ask for longer",
         "max-lease-time 0x708; default-lease-time 03410;\nmax-lease-time +7200;"
         "subnet 10.1.2.0 netmask 255.255.255.0 { }",
         one + "dhcp-match=set:asked,51\n"
               "dhcp-range=tag:asked,10.1.2.0,static,255.255.255.0,10.1.2.255,7200\n"
               "dhcp-range=tag:!asked,10.1.2.0,static,255.255.255.0,10.1.2.255,1800\n"},
        {"no lease time, and ranges on both sides of it",
         "subnet 10.1.2.4 netmask 255.255.255.252 {range 10.1.2.5;range 10.1.2.6;}",
         "2\ndhcp-ignore-clid\ndhcp-match=set:asked,51\n"
         "dhcp-range=tag:asked,10.1.2.5,10.1.2.5,255.255.255.252,10.1.2.7,86400\n"
         "dhcp-range=tag:!asked,10.1.2.5,10.1.2.5,255.255.255.252,10.1.2.7,43200\n"
         "dhcp-range=tag:asked,10.1.2.6,10.1.2.6,255.255.255.252,10.1.2.7,86400\n"
         "dhcp-range=tag:!asked,10.1.2.6,10.1.2.6,255.255.255.252,10.1.2.7,43200\n"},
        {"addresses, text, names and bytes, in odd writing",
         InSubnet("OPTION Domain-Name-Servers\n10.0.0.1 ,10.0.0.2;option domain-name local.domain;"
                  "option root-path \"a,\\x62\\143\\x6Azf\\1018\"; option domain-search \"a.b.\", \"c_-9\";"
                  "option interface-mtu 0x5dc;option unknown-230 \";}#\\\"\\n\\r\\t\\b\\xg\";"
                  "option host-name = \"it\"; option unknown-231 ff; # }\n"),
         one + placed +
             "dhcp-option=6,10.0.0.1,10.0.0.2\ndhcp-option=12,\"it\"\ndhcp-option=15,\"local.domain\"\n"
             "dhcp-option=17,\"a,bcjzfA8\"\ndhcp-option=26,05:dc\ndhcp-option=119,a.b,c_-9\n"
             "dhcp-option=230,3b:7d:23:22:0a:0d:09:08:00:67\ndhcp-option=231,255b\n"},
        {"options of its own",
         "option gates code 201 = array of ip-address; option one code 202 = unsigned integer 8;"
         "option low code 203 = array of integer 16; option lower code 204 = signed integer 8;"
         "option flags code 205 = array of boolean; option raw code 206 = string;"
         "option long code 207 = unsigned integer 32; option text code 208 = TEXT;\n" +
             InSubnet("option gates 10.0.0.1, 0.0.0.0; option one 0; option low -32768, +32767;"
                      "option lower -128; option Flags on, false; option raw a:0B:ff;"
                      "option long 0xfffffffe; option text \"t\\\"\";"),
         one + placed +
             "dhcp-option=201,0a:00:00:01:00:00:00:00\ndhcp-option=202,0b\ndhcp-option=203,80:00:7f:ff\n"
             "dhcp-option=204,128b\ndhcp-option=205,01:00\ndhcp-option=206,0a:0b:ff\n"
             "dhcp-option=207,ff:ff:ff:fe\ndhcp-option=208,74:22\n"},
        {"a host in groups, and what it is told there",
         InSubnet("option routers 10.1.2.1; filename \"pxe\"; next-server 10.1.2.4;",
                  "group{option routers 10.1.2.2; next-server 10.1.2.3; server-name \"s\"; group { host h {"
                  "hardware ethernet 2:0:0:A:b:c; fixed-address 10.9.9.9, 10.1.2.5; option host-name \"n\";"
                  "max-lease-time 300; } } }"),
         one + placed +
             "dhcp-option=3,10.1.2.1\ndhcp-boot=\"pxe\",,10.1.2.4\n"
             "dhcp-host=02:00:00:0a:0b:0c,set:h0,10.1.2.5,300\ndhcp-option=tag:h0,3,10.1.2.2\n"
             "dhcp-option=tag:h0,12,\"n\"\ndhcp-boot=tag:h0,\"pxe\",\"s\",10.1.2.3\n"},
        {"a host by its identifier, one that is refused, one for nobody, one by its label",
         "use-host-decl-names on;" +
             InSubnet("",
                      "host a { option dhcp-client-identifier \"ab\"; default-lease-time 600; }"
                      "host b { hardware ethernet 2:0:0:0:0:1; deny booting; } host c { }"
                      "host d { hardware ethernet 2:0:0:0:0:2; option dhcp-client-identifier 1:2;"
                      "use-host-decl-names off; }"),
         "4\n" + placed +
             "dhcp-host=id:61:62,set:h0\ndhcp-option=tag:h0,12,\"a\"\n"
             "dhcp-host=02:00:00:00:00:01,set:h1,ignore\ndhcp-option=tag:h1,12,\"b\"\n"
             "dhcp-host=02:00:00:00:00:02,id:01:02,set:h3\n"},
        {"pools, one of them for nobody",
         InSubnet("pool{range 10.1.2.7;deny unknown-clients;} pool{allow unknown-clients;range 10.1.2.8;}"
                  "pool{range 10.1.2.9;allow known-clients;allow unknown-clients;} pool{range 10.1.2.10;}"
                  "pool{range 10.1.2.11;deny known-clients;deny unknown-clients;}"),
         "4\ndhcp-ignore-clid\ndhcp-range=tag:known,10.1.2.7,10.1.2.7,255.255.255.0,10.1.2.255,600\n"
         "dhcp-range=tag:!known,10.1.2.8,10.1.2.8,255.255.255.0,10.1.2.255,600\n"
         "dhcp-range=10.1.2.9,10.1.2.9,255.255.255.0,10.1.2.255,600\n"
         "dhcp-range=10.1.2.10,10.1.2.10,255.255.255.0,10.1.2.255,600\n"},
        {"two subnets on one wire, a third that is on another",
         "max-lease-time 600; shared-network w { option routers 10.1.2.1; subnet 10.1.2.0 netmask "
         "255.255.255.0 {}"
         "subnet 10.1.3.0 netmask 255.255.255.0 { option routers 10.1.3.1; } }"
         "subnet 10.1.4.0 netmask 255.255.255.0 {}",
         one + "dhcp-range=set:s0,10.1.2.0,static,255.255.255.0,10.1.2.255,600\n"
               "dhcp-option=tag:s0,3,10.1.2.1\n"
               "dhcp-range=set:s1,10.1.3.0,static,255.255.255.0,10.1.3.255,600\n"
               "dhcp-option=tag:s1,3,10.1.3.1\nshared-network=zelan8,10.1.3.1\n"
               "dhcp-range=set:s2,10.1.4.0,static,255.255.255.0,10.1.4.255,600\n"},
        {"whom the server serves",
         "authoritative; allow booting; log-facility LOCAL7;" +
             InSubnet("deny unknown-clients; ignore bootp;"),
         one + "dhcp-authoritative\ndhcp-ignore=tag:!known\ndhcp-ignore=tag:bootp\nlog-facility=local7\n" +
             placed},
        {"what changes nothing",
         "ddns-update-style none; ddns-updates on; ping-check off; allow client-updates;; always-broadcast "
         "on; allow duplicates; allow declines; allow unknown-clients; boot-unknown-clients true;" +
             InSubnet(""),
         one + placed},
    };
    for (const auto &[condition, text, lines] : cases) {
        EXPECT_EQ(lines, Converted(text)) << condition;
    }
    const std::string longest =
        InSubnet("option merit-dump \"" + std::string(255, 'd') + "\"; filename \"" + std::string(127, 'f') +
                 "\"; server-name \"" + std::string(63, 's') + "\"; next-server 1.2.3.4;");
    EXPECT_TRUE(Converted(longest).ends_with("s\",1.2.3.4\n")) << Converted(longest);
}

// Some have values of the server's own, some are none on the wire.
TEST(DhcpConf, OptionsThatMayNotBeSetByTheirNumbers) {
    std::string refused;
    for (int code = 0; code <= 256; code++) {
        const std::string number = std::to_string(code);
        const std::string text = InSubnet("option unknown-" + number + " 01:02:03:04;");
        refused += Converted(text).starts_with("beyond 3: 'option") ? number + " " : "";
    }
    EXPECT_EQ("0 50 51 52 53 54 55 56 57 58 59 61 81 82 255 256 ", refused);
}

// Texts and their problems. ~ is the end of a line and @N a word of so many letters; a text behind S stands
// in a subnet, one behind H in a host.
constexpr char REFUSED[] =
    R"(subnet 10.1.2.0 netmask 255.255.255.0 {~ => 1: the block of 'subnet 10.1.2.0 netmask 255.255.255.0' is not closed by }
~} => 2: no block is open that } could close
S option routers 10.1.2.1 => 4: semicolon expected behind 'option routers 10.1.2.1'
~option x "abc;~ => 2: the text in quotation marks that begins here does not end
{ } => 1: nothing stands before {
option x code 200 = { ip-address,~ => 2: a record is not closed by }
default-lease-time 1800; => 1: it declares no subnet
subnet 10.1.2.0 netmask 255.0.255.0 { } => 1: 'subnet 10.1.2.0 netmask 255.0.255.0': a subnet reads 'subnet ADD
S range 10.1.2.5 10.1.3.5; => 3: 'range 10.1.2.5 10.1.3.5': the range is not in its subnet
S range 10.1.1.255 10.1.2.5; => 3: 'range 10.1.1.255 10.1.2.5': the range is not in its subnet
S range 10.1.2.5 10.1.2.6 10.1.2.7; => 3: 'range 10.1.2.5 10.1.2.6 10.1.2.7': a range has one or two addresses
range 10.1.2.5; => 1: 'range 10.1.2.5': it does not belong here
S hardware ethernet 2:0:0:0:0:1; => 3: 'hardware ethernet 2:0:0:0:0:1': it does not belong here
S option domain-search "@64"; => 3: 'option domain-search
host h { hardware ethernet 02:00; } => 1: 'hardware ethernet 02:00': hardware ethernet has six bytes between colons
H default-lease-time x; => 4: 'default-lease-time x'
S option routers 0.0.0.0; => beyond 3: an option with such a value
S option root-path "@256"; => beyond 3: 'option root-path "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa...'
S filename "@128"; next-server 1.2.3.4; => beyond 1: 'filename' or 'server-name' with such a text
S server-name "@64"; next-server 1.2.3.4; => beyond 1: 'filename' or 'server-name' with such a text
S filename "a"; => beyond 1: 'filename' or 'server-name' without 'next-server'
S default-lease-time 119; => beyond 3: a lease time below 120 seconds
S deny booting; => beyond 1: 'deny booting' for a subnet
S range dynamic-bootp 10.1.2.7; range 10.1.2.9; => beyond 1: 'dynamic-bootp' for some of the ranges
S } subnet 10.1.3.0 netmask 255.255.255.0 { authoritative; => beyond 3: 'authoritative' for some of the subnets
H range 10.1.2.3; => beyond 4: 'range 10.1.2.3'
H option dhcp-client-identifier 1; => beyond 4: a client identifier of one byte
H fixed-address 10.1.2.3, 10.1.2.4; => beyond 4: a host with several fixed addresses
H default-lease-time 300; => beyond 4: a host with a default and another longest lease time of its own
H fixed-address 10.1.2.3; } host b{hardware ethernet 2:0:0:0:0:2;fixed-address 10.1.2.3; => beyond 4: a fixed
)";

// Each of the statements by itself, which the problem names.
void ExpectEachRefused(bool inSubnet, const std::string &where, const std::string &statements) {
    std::istringstream stream(statements);
    for (std::string text; stream >> std::ws && getline(stream, text, ';');) {
        EXPECT_EQ(where + "'" + text + "'", Converted(inSubnet ? InSubnet(text + ";\n") : text + ";"));
    }
}

TEST(DhcpConf, RefusedWithLineAndReason) {
    std::istringstream rows(REFUSED);
    for (std::string row; getline(rows, row);) {
        const size_t arrow = row.find(" => ");
        std::string text = row.substr(0, arrow);
        std::replace(text.begin(), text.end(), '~', '\n');
        if (const size_t word = text.find('@'); word != std::string::npos) {
            const size_t end = text.find('"', word);
            text.replace(word, end - word, std::stoul(text.substr(word + 1)), 'a');
        }
        if (text.starts_with("S ")) {
            text = InSubnet(text.substr(2) + "\n");
        } else if (text.starts_with("H ")) {
            text = InSubnet("", "host h { hardware ethernet 2:0:0:0:0:1; " + text.substr(2) + " }");
        }
        const std::string converted = Converted(text);
        EXPECT_TRUE(converted.starts_with(row.substr(arrow + 4))) << row << "\n" << converted;
    }
    ExpectEachRefused(
        false,
        "1: ", R"(default-lease-time "60"; default-lease-time; max-lease-time 4294967296; max-lease-time --1;
max-lease-time -1; authoritative on; option; not so; filename pxe; ping-check maybe;
option x code 256 = text; option x code 200 text of; option x code 200 =;)");
    ExpectEachRefused(
        true, "3: ", R"(option routers 10.1.2.256; option routers 10.1.2.1,; option routers 10.1.2.1 10.1.2.2;
option routers "10.1.2.1"; option domain-name,; option domain-search a.b; option domain-search "a",;
option domain-search "a..b"; option ip-forwarding perhaps; option interface-mtu 65536;
option time-offset 2147483648; option unknown-230 1:100;)");
    ExpectEachRefused(false, "beyond 1: ",
                      R"(log-facility local8; deny duplicates; allow members of "x"; next-server gate.example;
ddns-update-style interim; option x code 53 = text; option x code 200 = array of text;)");
    ExpectEachRefused(
        true, "beyond 3: ",
        R"(option routers gate.example; option routers = "10.1.2.1"; option root-path ""; ping-check true;)");
    std::string nested;
    for (int depth = 0; depth < 32; depth++) {
        nested = "x{" + nested + "}";
    }
    EXPECT_EQ("beyond 1: 'x'", Converted(nested));
    EXPECT_EQ("1: blocks are nested too deeply", Converted("x{" + nested + "}"));
}

}  // namespace
