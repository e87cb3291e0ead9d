#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "lib/harbrel/cache/tables.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/database/transfer.h"
#include "tests/support/command.h"
#include "tests/support/fileSizeLimit.h"
#include "tests/support/logCapture.h"
#include "tests/support/tempFolder.h"

namespace {

class DatabaseRewrite : public testing::Test {
  protected:
    DatabaseRewrite() {
        WriteFileText(folder / "networking", "VERSION=1,0\n");
        EXPECT_TRUE(HBLNetCfgLoad((folder / "networking").c_str(), &db, false));
    }
    ~DatabaseRewrite() override { HBLNetCfgUnload(&db, false); }

    TempFolder folder;
    std::string path = folder / "new";
    HBLNetworkConfigurationDB *db = nullptr;
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
    LogCapture log(LOG_ERR | LOG_INFO);
    ASSERT_TRUE(NetCfgWriteDatabaseFile(db, path.c_str(), false));
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
        ReadFileText(path));
    EXPECT_EQ(
        "NetCfgWriteDatabaseFile - Records of type: 1, count 4 written to database file\n"
        "NetCfgWriteDatabaseFile - Records of type: 3, count 4 written to database file\n"
        "NetCfgWriteDatabaseFile - Records of type: 5, count 2 written to database file\n"
        "NetCfgWriteDatabaseFile - Records of type: 7, count 3 written to database file\n",
        log.Take());
}

TEST_F(DatabaseRewrite, EmptyCacheIsAVersionLineAlone) {
    LogCapture log(LOG_ERR | LOG_INFO);
    EXPECT_TRUE(NetCfgWriteDatabaseFile(db, path.c_str(), true));
    EXPECT_EQ("BACKUP_VERSION=1,0\n", ReadFileText(path));
    EXPECT_EQ("", log.Take());
}

TEST_F(DatabaseRewrite, FullDiskAtAnyPointLeavesNoFile) {
    for (int number = 0; number < 2000; number++) {
        NetCfgHashAddAnswer(db, ("VNET_" + std::to_string(number)).c_str(), "value");
    }
    // The version line does not fit; the first block of records does not; only the last bytes do not.
    ASSERT_TRUE(NetCfgWriteDatabaseFile(db, path.c_str(), false));
    const rlim_t whole = std::filesystem::file_size(path);
    for (const rlim_t limit : {rlim_t{5}, rlim_t{2000}, whole - 1}) {
        LogCapture log;
        bool written = true;
        {
            const FileSizeLimit full(limit);
            written = NetCfgWriteDatabaseFile(db, path.c_str(), false);
        }
        EXPECT_NE(std::string::npos, log.Take().find("error: File too large\n")) << limit;
        EXPECT_FALSE(written) << limit;
        EXPECT_FALSE(std::filesystem::exists(path)) << limit;
    }
}

TEST_F(DatabaseRewrite, ExportThatCannotBeWrittenNamesTheFile) {
    LogCapture log;
    EXPECT_FALSE(HBLNetCfgExportConfig(db, (folder / "none/backup").c_str()));
    EXPECT_NE(std::string::npos, log.Take().find("HBLNetCfgExportConfig - Failed to write records to "
                                                 "database file: " +
                                                 (folder / "none/backup\n")));
}

}  // namespace
