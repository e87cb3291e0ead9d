#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "lib/harbrel/cache/tables.h"
#include "tests/support/cacheTest.h"
#include "tests/support/fileSizeLimit.h"

namespace {

class DatabaseRewrite : public CacheTest {
  protected:
    DatabaseRewrite() { LoadRecords(""); }

    const std::string copy = folder / "new";
};

TEST_F(DatabaseRewrite, RecordsStandInTheirOrderAndBinDirIsDropped) {
    NetCfgHashAddAnswer(db, "VNET_1_DHCP", "yes");
    NetCfgHashAddAnswer(db, "VNET_10_DHCP", "no");
    NetCfgHashAddAnswer(db, "a", "small letters last");
    NetCfgHashAddAnswer(db, "BINDIR", "/usr/bin");
    NetCfgHashAddNATPortFwd(db, 9, true, 1, "10.0.9.2", 1, "");
    NetCfgHashAddNATPortFwd(db, 8, false, 53, "10.0.8.2", 53, nullptr);
    NetCfgHashAddNATPortFwd(db, 8, true, 8080, "10.0.8.2", 80, nullptr);
    NetCfgHashAddNATPortFwd(db, 8, true, 443, "10.0.8.2", 443, "two  words ");
    NetCfgHashAddDHCPMACToIP(db, 200, "02:00:00:00:00:01", "10.0.200.3");
    NetCfgHashAddDHCPMACToIP(db, 3, "02:00:00:00:00:02", "10.0.3.3");
    NetCfgHashAddBridgeMapping(db, "eth1", 2);
    NetCfgHashAddBridgeMapping(db, "Eth2", 2);
    NetCfgHashAddBridgeMapping(db, "wlan0", -1);
    ASSERT_TRUE(NetCfgWriteDatabaseFile(db, copy.c_str(), false));
    EXPECT_EQ(
        "VERSION=1,0\n"
        "answer VNET_10_DHCP no\n"
        "answer VNET_1_DHCP yes\n"
        "answer a small letters last\n"
        "add_nat_portfwd 8 tcp 443 10.0.8.2 443 two  words \n"
        "add_nat_portfwd 8 tcp 8080 10.0.8.2 80\n"
        "add_nat_portfwd 8 udp 53 10.0.8.2 53\n"
        "add_nat_portfwd 9 tcp 1 10.0.9.2 1 \n"
        "add_dhcp_mac_to_ip 3 02:00:00:00:00:02 10.0.3.3\n"
        "add_dhcp_mac_to_ip 200 02:00:00:00:00:01 10.0.200.3\n"
        "add_bridge_mapping wlan0 -1\n"
        "add_bridge_mapping Eth2 2\n"
        "add_bridge_mapping eth1 2\n",
        ReadFileText(copy));
}

TEST_F(DatabaseRewrite, FullDiskAtAnyPointLeavesNoFile) {
    for (int number = 0; number < 2000; number++) {
        NetCfgHashAddAnswer(db, ("VNET_" + std::to_string(number)).c_str(), "value");
    }
    ASSERT_TRUE(NetCfgWriteDatabaseFile(db, copy.c_str(), false));
    const std::pair<rlim_t, const char *> cases[] = {
        {5, "HBLNetCfgCreateDB - Failed to write intialization data into file: "},
        {2000, "NetCfgWriteDatabaseFile - Failed to write record of type: 1 to  database file\n"},
        {std::filesystem::file_size(copy) - 1, "NetCfgWriteDatabaseFile - Failed to finish database file: "},
    };
    for (const auto &[room, failure] : cases) {
        const auto write = [this] { return NetCfgWriteDatabaseFile(db, copy.c_str(), false); };
        EXPECT_FALSE(OnFullDisk(room, write)) << failure;
        EXPECT_NE(std::string::npos, log.Take().find(failure)) << failure;
        EXPECT_FALSE(std::filesystem::exists(copy)) << failure;
    }
}

}  // namespace
