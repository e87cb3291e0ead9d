#include <gmock/gmock.h>

#include <algorithm>
#include <vector>

#include "tests/support/cacheTest.h"

using ReadsTest = CacheTest;

TEST_F(ReadsTest, DHCPEnumerationFollowsTheTableAndEndsInAnEmptyOne) {
    uint32_t index = 0;
    char mac[18];
    char ip[16];
    uint16_t port;
    LoadRecords(
        "add_dhcp_mac_to_ip 1 02:00:00:11:22:33 10.0.0.1\nadd_dhcp_mac_to_ip 1 02:00:00:11:22:34 10.0.0.2\n"
        "add_nat_portfwd 1 tcp 80 10.0.0.1 81\n");
    EXPECT_FALSE(HBLNetCfgLookupNATPortFwd(db, 1, true, 80, ip, 8, &port, nullptr, nullptr));
    EXPECT_FALSE(HBLNetCfgEnumDHCPMACToIP(db, 1, &index, mac, 17, ip, sizeof ip));
    EXPECT_FALSE(HBLNetCfgEnumDHCPMACToIP(db, 1, &index, mac, sizeof mac, ip, 8));
    EXPECT_FALSE(HBLNetCfgLookupDHCPMACToIP(db, 1, "02:00:00:11:22:33", ip, 8));
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(4, std::ranges::count(log.Take(), '\n'));
    std::vector<std::string> found;
    while (HBLNetCfgEnumDHCPMACToIP(db, 1, &index, mac, sizeof mac, ip, sizeof ip)) {
        found.push_back(std::string(mac) + " " + ip);
    }
    EXPECT_THAT(found,
                testing::UnorderedElementsAre("02:00:00:11:22:33 10.0.0.1", "02:00:00:11:22:34 10.0.0.2"));

    // A change drops the snapshot, whose entries it may have freed.
    index = 1;
    ASSERT_TRUE(HBLNetCfgRemoveDHCPMACToIP(db, 1, "02:00:00:11:22:33"));
    EXPECT_FALSE(HBLNetCfgEnumDHCPMACToIP(db, 1, &index, mac, sizeof mac, ip, sizeof ip));
    ASSERT_TRUE(HBLNetCfgRemoveDHCPMACToIP(db, 1, "02:00:00:11:22:34"));
    log.Take();
    index = 0;
    EXPECT_FALSE(HBLNetCfgEnumDHCPMACToIP(db, 1, &index, mac, sizeof mac, ip, sizeof ip));
    EXPECT_EQ(log.Take(), "HBLNetCfgEnumDHCPMACToIP - Failure in creating array of DHCP mappings\n");
}
