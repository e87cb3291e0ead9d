#include <gmock/gmock.h>

#include <algorithm>
#include <vector>

#include "tests/support/cacheTest.h"

using ReadsTest = CacheTest;

TEST_F(ReadsTest, DHCPEnumerationFollowsTheTableAndEndsInAnEmptyOne) {
    uint32_t index = 0;
    char mac[18];
    char ip[16];
    LoadRecords(
        "add_dhcp_mac_to_ip 1 02:00:00:11:22:33 10.0.0.1\nadd_dhcp_mac_to_ip 1 02:00:00:11:22:34 10.0.0.2\n");
    EXPECT_FALSE(HBLNetCfgEnumDHCPMACToIP(db, 1, &index, mac, 17, ip, sizeof ip));
    EXPECT_FALSE(HBLNetCfgEnumDHCPMACToIP(db, 1, &index, mac, sizeof mac, ip, 8));
    EXPECT_FALSE(HBLNetCfgLookupDHCPMACToIP(db, 1, "02:00:00:11:22:33", ip, 8));
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(3, std::ranges::count(log.Take(), '\n'));
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

// The two reads of forwards differ in the level of one line.
TEST_F(ReadsTest, ForwardIsHandedOutWholeOrNotAtAll) {
    LoadRecords("add_nat_portfwd 1 tcp 80 10.0.0.1 81 web\n");
    ASSERT_TRUE(HBLNetCfgAddNATPortFwd(db, 1, false, 53, "10.0.0.2", 54, nullptr, false));
    log.Take();
    const struct {
        const char *what;
        bool isTcp, enumerates;
        size_t vmIPSize, descriptionSize;
        bool found;
        size_t sizeAfter;
        const char *line;
    } cases[] = {
        {"fits to the byte", true, false, 9, 4, true, 4, ""},
        {"fits to the byte", true, true, 9, 4, true, 4, ""},
        {"small for the address", true, false, 8, 4, false, 4,
         "HBLNetCfgLookupNATPortFwd - Insufficient buffer length: 8 for IP address: 10.0.0.1\n"},
        {"small for the address", true, true, 8, 4, false, 4,
         "HBLNetCfgEnumNATPortFwd - Insufficient buffer length: 8 for IP address: 10.0.0.1\n"},
        {"small for the description", true, false, 16, 3, false, 3, ""},
        {"small for the description", true, true, 16, 3, false, 3,
         "HBLNetCfgEnumNATPortFwd - Insufficient buffer length for description\n"},
        {"no description", false, false, 16, 128, true, 0, ""},
        {"no description", false, true, 16, 128, true, 0, ""},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(testing::Message() << row.what << row.enumerates);
        char vmIP[16] = "-", description[128] = "-";
        size_t size = row.descriptionSize;
        uint32_t index = 0;
        uint16_t hostPort = 0, vmPort = 0;
        EXPECT_EQ(row.found, row.enumerates
                                 ? HBLNetCfgEnumNATPortFwd(db, 1, row.isTcp, &index, &hostPort, vmIP,
                                                           row.vmIPSize, &vmPort, description, &size)
                                 : HBLNetCfgLookupNATPortFwd(db, 1, row.isTcp, row.isTcp ? 80 : 53, vmIP,
                                                             row.vmIPSize, &vmPort, description, &size));
        EXPECT_EQ(row.sizeAfter, size);
        EXPECT_EQ(!row.found ? "-" : row.isTcp ? "10.0.0.1" : "10.0.0.2", std::string(vmIP));
        EXPECT_EQ(row.found && row.isTcp ? "web" : "-", std::string(description));
        EXPECT_EQ(row.found && row.enumerates ? 1u : 0u, index);
        EXPECT_EQ(row.line, log.Take());
    }
}
