#include "lib/harbrel/database/transfer.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <numeric>
#include <set>
#include <string>

#include "lib/harbrel/database/database.h"
#include "lib/harbrel/dhcp/dhcpParameters.h"
#include "lib/harbrel/files/files.h"
#include "lib/harbrel/nat/natParameters.h"
#include "lib/misc/owners.h"
#include "tests/support/command.h"
#include "tests/support/fileSizeLimit.h"
#include "tests/support/logCapture.h"
#include "tests/support/tempFolder.h"

namespace {

class DatabaseTransfer : public testing::Test {
  protected:
    ~DatabaseTransfer() override {
        if (*HBLNetCfgDefaultSlot() != nullptr) {
            HBLNetCfgUnload(nullptr, false);
        }
    }
    bool Import(const std::string &text) {
        WriteFileText(backup, text);
        return HBLNetCfgImportConfig(backup.c_str(), path.c_str());
    }

    TempFolder folder;
    std::string path = folder / "networking";
    std::string backup = folder / "backup";
};

TEST_F(DatabaseTransfer, ImportFiltersAndUpgrades) {
    static constexpr struct {
        const char *behaviour, *backup;
        const char *database;  // behind the version line
    } ROWS[] = {
        {"empty legacy file", "", ""},
        {"later minor version", "BACKUP_VERSION=1,3\nanswer HBL_LOGLEVEL 0x7f\n",
         "answer HBL_LOGLEVEL 0x7f\n"},
        {"live database as backup", "VERSION=1,0\nanswer VNET_1_NAT no\n", "answer VNET_1_NAT no\n"},
        {"host keys and unknown ones go",
         "BACKUP_VERSION=1,0\nanswer BINDIR /x\nanswer RUNDIR /run\nanswer CONFIGDIR /c\nanswer MY_NOTE n\n"
         "answer VNET_1_COLOUR red\nanswer vnet_1_dhcp yes\nanswer VNET_300_DHCP yes\nanswer VNET_-1_NAT no\n"
         "answer VNET_x_NAT no\nanswer VNET_5 yes\nanswer hbl_loglevel 1\n",
         ""},
        {"numbers read as numbers", "BACKUP_VERSION=1,0\nanswer VNET_0x1_DHCP yes\nanswer VNET_255_NAT no\n",
         "answer VNET_0x1_DHCP yes\nanswer VNET_255_NAT no\n"},
        {"legacy bridging", "answer VNET_0_INTERFACE eth0\nanswer VNET_2_INTERFACE eth1\n",
         "add_bridge_mapping eth0 0\nadd_bridge_mapping eth1 2\n"},
        {"legacy address over present fields",
         "answer VNET_1_VIRTUAL_ADAPTER no\nanswer VNET_1_VIRTUAL_ADAPTER_ADDR 10.0.0.1\n"
         "answer VNET_1_HOSTONLY_HOSTADDR 192.168.1.1\n",
         "answer VNET_1_VIRTUAL_ADAPTER yes\nanswer VNET_1_VIRTUAL_ADAPTER_ADDR 192.168.1.1\n"},
        {"legacy fields of a present file stay",
         "BACKUP_VERSION=1,0\nanswer VNET_1_HOSTONLY_HOSTADDR 1.2.3.4\nanswer VNET_2_INTERFACE eth1\n",
         "answer VNET_1_HOSTONLY_HOSTADDR 1.2.3.4\nanswer VNET_2_INTERFACE eth1\n"},
        {"a legacy adapter name that would read back as another",
         "answer VNET_2_INTERFACE eth 1\nanswer VNET_3_DHCP no\n", "answer VNET_3_DHCP no\n"},
        {"other families are not filtered",
         "add_nat_portfwd 8 tcp 80 10.0.0.2 80 web\nadd_dhcp_mac_to_ip 8 2:0:0:a:b:c 10.0.0.3\n",
         "add_nat_portfwd 8 tcp 80 10.0.0.2 80 web\nadd_dhcp_mac_to_ip 8 02:00:00:0A:0B:0C 10.0.0.3\n"},
    };
    LogCapture log(LOG_ERR | LOG_WRN | LOG_INFO2);
    std::string lines;
    for (const auto &row : ROWS) {
        EXPECT_TRUE(Import(row.backup)) << row.behaviour;
        const std::string latest = log.Take();
        EXPECT_EQ(latest.find("UpdateDatabaseFields - Source and destination database versions are same\n") !=
                      std::string::npos,
                  std::string(row.backup).starts_with("BACKUP_VERSION=1,0\n"))
            << row.behaviour;
        lines += latest;
        EXPECT_EQ(std::string("VERSION=1,0\n") + row.database, ReadFileText(path)) << row.behaviour;
    }
    const std::string longName(128, 'e');
    EXPECT_TRUE(Import("answer VNET_2_INTERFACE " + longName + "\n"));
    EXPECT_EQ("VERSION=1,0\n", ReadFileText(path));
    lines += log.Take();
    const std::string cleanup = "NetCfgCleanupDatabaseFields - ";
    for (const std::string &line :
         {cleanup + "Failed to parse vnet number in record: VNET_300_DHCP, deleting record\n",
          cleanup + "Deleting record - MY_NOTE:n from backup cache\n",
          "NetCfgUpdateDatabaseFields - Invalid adapter name: " + longName + ", deleting record\n"}) {
        EXPECT_NE(lines.find(line), std::string::npos) << line;
    }
}

TEST_F(DatabaseTransfer, ImportKeepsEveryParameterOfDhcpAndNat) {
    std::set<std::string> answers = {"answer VNET_8_DHCP_CFG_HASH 1\n"};
    for (const auto &rows : {HBLDHCPParameterRows(), HBLNATParameterRows()}) {
        for (const ParameterRow &row : rows) {
            if (row.key[0] != '\0') {
                answers.insert(std::string("answer VNET_8_") + row.key + " 1\n");
            }
        }
    }
    const std::string records = std::accumulate(answers.begin(), answers.end(), std::string());
    EXPECT_TRUE(Import("BACKUP_VERSION=1,0\n" + records));
    EXPECT_EQ("VERSION=1,0\n" + records, ReadFileText(path));
    EXPECT_EQ(18u, answers.size());
}

TEST_F(DatabaseTransfer, FormerDatabasesAreKeptUnderFreeNames) {
    WriteFileText(path, "first");
    ASSERT_EQ(0, symlink("nowhere", (path + ".bak.1").c_str()));  // stands there, though it leads nowhere
    EXPECT_TRUE(Import("answer HBL_LOGLEVEL 1\n"));
    EXPECT_TRUE(Import("answer HBL_LOGLEVEL 2\n"));
    EXPECT_EQ("first", ReadFileText(path + ".bak.0"));
    EXPECT_EQ("VERSION=1,0\nanswer HBL_LOGLEVEL 1\n", ReadFileText(path + ".bak.2"));
}

TEST_F(DatabaseTransfer, FailureLeavesDatabaseAndCacheAsTheyWere) {
    const std::string former = "VERSION=1,0\nanswer HBL_LOGLEVEL 1\n";
    WriteFileText(path, former);
    ASSERT_TRUE(HBLNetCfgLoad(path.c_str(), nullptr, false));
    EXPECT_FALSE(Import("BACKUP_VERSION=2,0\n"));
    EXPECT_FALSE(HBLNetCfgImportConfig((folder / "none").c_str(), path.c_str()));
    WriteFileText(backup, "answer VNET_1_DHCP yes\nanswer VNET_2_DHCP " + std::string(1500, 'y') + "\n");
    LogCapture log(LOG_ERR | LOG_INFO);
    // Enough for the lock, not for the new database.
    EXPECT_FALSE(OnFullDisk(1000, [&] { return HBLNetCfgImportConfig(backup.c_str(), path.c_str()); }));
    EXPECT_NE(std::string::npos,
              log.Take().find("HBLNetCfgImportConfig - Restored database file during error handling\n"));
    EXPECT_EQ(former, ReadFileText(path));
    EXPECT_FALSE(std::filesystem::exists(path + ".bak.0"));
    EXPECT_TRUE(HBLNetCfgAddAnswerString(nullptr, "A", "b"));
    EXPECT_EQ(former + "answer A b\n", ReadFileText(path));
    // The name of a backup would be longer than a path may be.
    HBLNetCfgUnload(nullptr, false);
    path.resize(HBL_PATH_SIZE - 1 - strlen(".bak"), 'n');
    WriteFileText(path, former);
    ASSERT_TRUE(HBLNetCfgLoad(path.c_str(), nullptr, false));
    EXPECT_FALSE(Import("BACKUP_VERSION=1,3\nanswer HBL_LOGLEVEL 2\n"));
    EXPECT_NE(std::string::npos, log.Take().find(".bak.0 is longer than allowed 256 characters\n"
                                                 "HBLNetCfgImportConfig - Failed to create backup file: " +
                                                 path + ".bak.0\n"));
    EXPECT_TRUE(HBLNetCfgLockConfig(nullptr));
    EXPECT_EQ(former, ReadFileText(path));
}

}  // namespace
