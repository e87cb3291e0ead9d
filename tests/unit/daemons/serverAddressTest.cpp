#include "daemons/zelan-dhcpd/serverAddress.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

TEST(ServerAddress, HighestAddressThatNobodyElseIsToHave) {
    const std::string subnet = "subnet 10.1.2.0 netmask 255.255.255.0 {\n";
    const std::string small = "subnet 10.1.2.8 netmask 255.255.255.248 {\n";
    const std::tuple<const char *, std::string, const char *> cases[] = {
        {"a range at the top", subnet + "range 10.1.2.129 10.1.2.254;}", "10.1.2.128"},
        {"fixed addresses", subnet + "}host a{fixed-address 10.1.2.254,10.1.2.253;}", "10.1.2.252"},
        {"routers and name servers", subnet + "option routers 10.1.2.254;}", "10.1.2.253"},
        {"addresses in comments and texts do not count",
         "# subnet 10.9.9.0 netmask 255.255.255.0\n" + subnet + "option x \"10.1.2.254\"; # 10.1.2.254\n}",
         "10.1.2.254"},
        {"the host's and the gateway's usual ones stay free", small + "range 10.1.2.11 10.1.2.14;}", "none"},
        {"one left in a small subnet", small + "range 10.1.2.12 10.1.2.14;}", "10.1.2.11"},
    };
    for (const auto &[condition, text, address] : cases) {
        ServerAddress chosen;
        const char *reason = nullptr;
        std::vector<DhcpStatement> statements;
        DhcpFault fault;
        ASSERT_TRUE(DhcpSyntax_Parse(text, &statements, &fault)) << condition << fault.reason;
        const bool found = ServerAddress_Choose(statements, &chosen, &reason);
        EXPECT_EQ(address, found ? Ipv4_Text(chosen.address) : "none") << condition;
        EXPECT_EQ(found, reason == nullptr) << condition;
    }
}
