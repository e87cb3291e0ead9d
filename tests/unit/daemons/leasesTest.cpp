#include "daemons/zelan-dhcpd/leases.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

constexpr int64_t NOW = 1795400000;  // 2026-11-23 02:13:20 UTC

std::string Reread(LeaseFormat from, LeaseFormat to, const std::string &text) {
    return Leases_Write(to, Leases_Read(from, text, NOW), NOW);
}

TEST(Leases, ThoseThatHoldChangeBetweenTheServersBothWays) {
    const std::string lines =
        "0 02:00:00:00:00:03 10.1.2.3 * *\n"
        "1795400600 02:00:00:00:00:04 10.1.2.4 guest-4 01:02:00:00:00:00:04\n"
        "1795400700 02:00:00:00:00:05 10.1.2.5 * ff:00:22:5c:0a\n";
    const std::string blocks =
        Reread(LeaseFormat::DNSMASQ, LeaseFormat::ISC,
               "1795400000 2:0:0:0:0:6 10.1.2.6 * *\n253402300800 2:0:0:0:0:6 10.1.2.6 * *\n"
               "0 2:0:0:0:0 10.1.2.6 * *\n0 2:0:0:0:0:6 10.1.2.6 *\n0 2:0:0:0:0:6 10.1.2.6 * x\n" +
                   lines);
    const auto block = [](const std::string &address, const std::string &end, const std::string &more) {
        return "lease " + address + " {\n  starts 1 2026/11/23 02:13:20;\n  ends " + end +
               ";\n  cltt 1 2026/11/23 02:13:20;\n  binding state active;\n  next binding state free;\n" +
               "  hardware ethernet 02:00:00:00:00:0" + address.back() + ";\n" + more + "}\n";
    };
    EXPECT_EQ(
        "authoring-byte-order little-endian;\n" + block("10.1.2.3", "never", "") +
            block("10.1.2.4", "1 2026/11/23 02:23:20",
                  "  uid \"\\001\\002\\000\\000\\000\\000\\004\";\n  client-hostname \"guest\\0554\";\n") +
            block("10.1.2.5", "1 2026/11/23 02:25:00", "  uid \"\\377\\000\\042\\134\\012\";\n"),
        blocks);
    EXPECT_EQ(lines, Reread(LeaseFormat::ISC, LeaseFormat::DNSMASQ, blocks));
}

TEST(Leases, LastWordOfDhcpdCounts) {
    const auto block = [](const char *address, const char *members) {
        return std::string("lease ") + address + " { " + members +
               " hardware ethernet 02:00:00:00:00:01; }\n";
    };
    const std::string text = "# comment\nauthoring-byte-order little-endian;\nserver-duid \"\\000\\\"\";\n" +
                             block("10.1.2.1", "ends 1 2026/11/23 02:00:00; binding state active;") +
                             block("10.1.2.2", "ends never; binding state active;") +
                             block("10.1.2.3", "ends epoch 1795400001; # Mon\n binding state active;") +
                             block("10.1.2.4", "ends 1 2026/11/23 01:00:00; binding state active;") +
                             block("10.1.2.5", "ends never; binding state abandoned;") +
                             block("10.1.2.7", "ends 1 2026/11/23; binding state active;") +
                             block("10.1.2.8", "ends epoch 1795400002; uid 1:0A; client-hostname \"g.1\";") +
                             "lease 10.1.2.9 { ends never; }\nlease 10.1.2 { ends never; }\n" +
                             block("10.1.2.2", "ends 1 2026/11/23 02:00:00; binding state free;") +
                             "lease 10.1.2.1 { ends never; bin";
    EXPECT_EQ(
        "1795399200 02:00:00:00:00:01 10.1.2.1 * *\n1795400001 02:00:00:00:00:01 10.1.2.3 * *\n"
        "1795400002 02:00:00:00:00:01 10.1.2.8 g.1 01:0a\n",
        Leases_Write(LeaseFormat::DNSMASQ, Leases_Read(LeaseFormat::ISC, text, NOW - 1000), NOW));
}

TEST(Leases, FileIsKnownByItsFirstWord) {
    std::string formats;
    for (const char *text : {"", "# dhcpd\n", "0 2:0:0:0:0:1", "duid 1", "lease 1", "HOST", "group {",
                             "failover", "authoring-byte-order x", "server-duid", "1x", "\"1\"", ";"}) {
        formats += std::to_string(static_cast<int>(Leases_FormatOf(text)));
    }
    EXPECT_EQ("0011222222333", formats) << "empty, of dnsmasq, of dhcpd, foreign";
}

TEST(Leases, WhatClientsSayStaysInItsField) {
    const std::string evil = "x\n0 02:00:00:00:00:09 10.1.2.9 * *\";}\\\n\tlease 10.1.2.9 {";
    const std::vector<DhcpLease> leases = {{0x0a010203, "02:00:00:00:00:03", evil, evil, 0}};
    const std::string line = Leases_Write(LeaseFormat::DNSMASQ, leases, NOW);
    EXPECT_EQ(1, std::count(line.begin(), line.end(), '\n')) << line;
    EXPECT_TRUE(line.starts_with("0 02:00:00:00:00:03 10.1.2.3 * 78:0a:30")) << line;
    const std::vector<DhcpLease> back =
        Leases_Read(LeaseFormat::ISC, Leases_Write(LeaseFormat::ISC, leases, NOW), NOW);
    ASSERT_EQ(1U, back.size());
    EXPECT_EQ(evil, back[0].clientId);
    EXPECT_EQ(evil, back[0].hostName);
}

}  // namespace
