#include <gmock/gmock.h>

#include <vector>

#include "lib/harbrel/base/hostAdapterChain.h"
#include "lib/harbrel/cache/tables.h"
#include "tests/support/cacheTest.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

using ReadsTest = CacheTest;

namespace {

std::vector<std::string> AdaptersOf(HBLNetworkConfigurationDB *db, int32_t vnet, bool exclude) {
    HostAdapterChain chain;
    EXPECT_TRUE(HBLNetCfgLookupHostAdaptersForVnet(db, vnet, &chain.count, &chain.head, exclude));
    std::vector<std::string> names;
    for (const HBL_HostAdapter *adapter = chain.head; adapter != nullptr; adapter = adapter->next) {
        EXPECT_TRUE(adapter->version == 1 && adapter->net.version == 1 && adapter->net.type == 1);
        EXPECT_EQ(static_cast<int32_t>(adapter->net.vnet), vnet);
        names.emplace_back(adapter->deviceName);
    }
    EXPECT_EQ(names.size(), chain.count);
    return names;
}

}  // namespace

TEST_F(ReadsTest, AnswersReadByKind) {
    LoadRecords("answer NUMBER 0x10\nanswer YES YeS\nanswer NO true\n");
    int32_t number = 7;
    bool isYes = true;
    EXPECT_FALSE(HBLNetCfgGetAnswerBool(db, "ABSENT", &isYes));
    EXPECT_FALSE(HBLNetCfgGetAnswerInt32(db, "ABSENT", &number));
    EXPECT_FALSE(HBLNetCfgGetAnswerInt32(db, "YES", &number));
    EXPECT_TRUE(isYes && number == 7);
    EXPECT_EQ(log.Take(),
              "HBLNetCfgGetAnswerInt32 - Value not found or failed to convert value to integer: null\n"
              "HBLNetCfgGetAnswerInt32 - Value not found or failed to convert value to integer: YeS\n");
    EXPECT_TRUE(HBLNetCfgGetAnswerInt32(db, "number", &number) && number == 16);
    EXPECT_TRUE(HBLNetCfgGetAnswerBool(db, "NO", &isYes) && !isYes);
    EXPECT_TRUE(HBLNetCfgGetAnswerBool(db, "yes", &isYes) && isYes);
}

TEST_F(ReadsTest, DHCPEnumerationFollowsTheTableAndEndsInAnEmptyOne) {
    uint32_t index = 0;
    char mac[18];
    char ip[16];
    LoadRecords(
        "add_dhcp_mac_to_ip 1 02:00:00:11:22:33 10.0.0.1\nadd_dhcp_mac_to_ip 1 02:00:00:11:22:34 10.0.0.2\n");
    EXPECT_FALSE(HBLNetCfgEnumDHCPMACToIP(db, 1, &index, mac, 17, ip, sizeof ip));
    EXPECT_EQ(index, 0u);
    std::vector<std::string> found;
    while (HBLNetCfgEnumDHCPMACToIP(db, 1, &index, mac, sizeof mac, ip, sizeof ip)) {
        found.push_back(std::string(mac) + " " + ip);
    }
    EXPECT_THAT(found, UnorderedElementsAre("02:00:00:11:22:33 10.0.0.1", "02:00:00:11:22:34 10.0.0.2"));

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

TEST_F(ReadsTest, ForwardDescriptionsReportTheirLengthWithTerminator) {
    LoadRecords("");
    NetCfgHashAddNATPortFwd(db, 8, true, 1, "10.0.0.1", 81, "four");
    NetCfgHashAddNATPortFwd(db, 8, true, 2, "10.0.0.1", 81, "");
    NetCfgHashAddNATPortFwd(db, 8, true, 3, "10.0.0.1", 81, nullptr);
    const struct {
        uint16_t hostPort;
        size_t vmIPSize, size;
        bool found;
        size_t reported;
        const char *description;
    } cases[] = {
        {1, 9, 5, true, 5, "four"}, {1, 9, 4, false, 4, "-"}, {1, 8, 5, false, 5, "-"},
        {2, 9, 1, true, 1, ""},     {2, 9, 0, false, 0, "-"}, {3, 9, 5, true, 0, "-"},
        {4, 9, 5, false, 5, "-"},
    };
    for (const auto &row : cases) {
        char vmIP[16] = "-";
        char description[128] = "-";
        uint16_t vmPort = 0;
        size_t size = row.size;
        EXPECT_EQ(HBLNetCfgLookupNATPortFwd(db, 8, true, row.hostPort, vmIP, row.vmIPSize, &vmPort,
                                            description, &size),
                  row.found)
            << row.hostPort << " " << row.size;
        EXPECT_EQ(size, row.reported);
        EXPECT_STREQ(description, row.description);
        EXPECT_STREQ(vmIP, row.found ? "10.0.0.1" : "-");
        EXPECT_EQ(vmPort, row.found ? 81 : 0);
    }
    EXPECT_FALSE(HBLNetCfgLookupNATPortFwd(db, 8, false, 1, nullptr, 0, nullptr, nullptr, nullptr));
    EXPECT_THAT(log.Take(), HasSubstr("HBLNetCfgLookupNATPortFwd - List of NAT forwarded ports is empty\n"));
}

TEST_F(ReadsTest, ForwardEnumerationReportsEachPortOfItsProtocol) {
    LoadRecords("add_nat_portfwd 8 udp 1 10.0.0.1 81 a\nadd_nat_portfwd 8 udp 2 10.0.0.2 82 b\n");
    uint32_t index = 0;
    uint16_t hostPort = 0;
    uint16_t vmPort = 0;
    char vmIP[16];
    char description[2];
    size_t size = 0;
    const auto next = [&](bool isTcp, size_t room) {
        size = room;
        return HBLNetCfgEnumNATPortFwd(db, 8, isTcp, &index, &hostPort, vmIP, sizeof vmIP, &vmPort,
                                       description, &size);
    };
    EXPECT_FALSE(next(false, 1));
    EXPECT_FALSE(next(true, 2));
    EXPECT_EQ(log.Take(),
              "HBLNetCfgEnumNATPortFwd - Insufficient buffer length for description\n"
              "HBLNetCfgEnumNATPortFwd - List of forwarded ports is empty\n");
    std::vector<std::string> found;
    while (next(false, 2)) {
        found.push_back(std::to_string(hostPort) + " " + vmIP + " " + std::to_string(vmPort) + description);
    }
    EXPECT_THAT(found, UnorderedElementsAre("1 10.0.0.1 81a", "2 10.0.0.2 82b"));
}

TEST_F(ReadsTest, HostAdaptersOfAVnetOrOfAllOthers) {
    LoadRecords("");
    EXPECT_THAT(AdaptersOf(db, 3, false), IsEmpty());
    LoadRecords(
        "add_bridge_mapping eth0 3\nadd_bridge_mapping wlan0 -1\nadd_bridge_mapping eth1 3\n"
        "add_bridge_mapping eth2 4\n");
    const std::string tooLong(128, 'n');
    ASSERT_TRUE(NetCfgHashAddBridgeMapping(db, tooLong.c_str(), 4));
    EXPECT_THAT(AdaptersOf(db, 3, false), UnorderedElementsAre("eth0", "eth1"));
    EXPECT_THAT(AdaptersOf(db, 3, true), UnorderedElementsAre("wlan0", "eth2"));
    EXPECT_EQ(log.Take(), "HBLNetCfgLookupHostAdaptersForVnet - Adapter: " + tooLong +
                              " is longer than expected, skipping\n");
    EXPECT_THAT(AdaptersOf(db, HBL_VNET_NONE, false), ElementsAre("wlan0"));

    int32_t vnet = 9;
    EXPECT_FALSE(HBLNetCfgLookupVnetForHostAdapter(db, "eth9", &vnet));
    EXPECT_EQ(vnet, 9);
    EXPECT_TRUE(HBLNetCfgLookupVnetForHostAdapter(db, "WLAN0", &vnet));
    EXPECT_EQ(vnet, HBL_VNET_NONE);
}
