// A database of which a crash or a full disk has left only the beginning.
#include <gtest/gtest.h>

#include <sstream>

#include "lib/harbrel/database/database.h"
#include "lib/harbrel/database/transfer.h"
#include "tests/support/command.h"
#include "tests/support/tempFolder.h"

namespace {

constexpr char RECORDS[] =
    "answer HBL_LOGLEVEL 1\nanswer VNET_8_DHCP yes\nanswer VNET_8_HOSTONLY_SUBNET 10.7.8.0\n"
    "remove_answer VNET_9_DHCP\nadd_nat_portfwd 8 tcp 8080 10.7.8.5 80 web server\n"
    "add_dhcp_mac_to_ip 8 00:0C:29:00:00:01 10.7.8.9\nadd_bridge_mapping eth7 2\n"
    "remove_bridge_mapping eth9\n";

// Whether every addition that stands there with its line end comes out again.
void ExpectWholeLines(const std::string &cut, const std::string &written) {
    std::istringstream lines(cut.substr(cut.find('\n') + 1));
    for (std::string line; std::getline(lines, line) && !lines.eof();) {
        if (line.rfind("remove_", 0) != 0) {
            EXPECT_NE(std::string::npos, written.find(line + "\n")) << line << "\nof\n" << cut;
        }
    }
}

void ExpectEveryCutToLoad(const std::string &versionLine, bool isBackup, size_t shortest) {
    const TempFolder folder;
    const std::string path = folder / "networking";
    const std::string text = versionLine + "\n" + RECORDS;
    for (size_t length = 0; length <= text.size(); length++) {
        const std::string cut = text.substr(0, length);
        WriteFileText(path, cut);
        HBLNetworkConfigurationDB *db = nullptr;
        ASSERT_EQ(length >= shortest, HBLNetCfgLoad(path.c_str(), &db, isBackup)) << cut;
        if (db != nullptr) {
            EXPECT_TRUE(HBLNetCfgExportConfig(db, (folder / "written").c_str()));
            HBLNetCfgUnload(&db, false);
            ExpectWholeLines(cut, ReadFileText(folder / "written"));
        }
        EXPECT_EQ(cut, ReadFileText(path));
        EXPECT_FALSE(std::filesystem::exists(path + ".lck"));
    }
}

TEST(CutDatabase, LoadsFromItsVersionLineOn) {
    ExpectEveryCutToLoad("VERSION=1,0", false, sizeof "VERSION=1,0" - 1);
}

TEST(CutDatabase, LegacyBackupLoadsAtEveryLength) {
    ExpectEveryCutToLoad("answer FIRST 1", true, 0);
}

}  // namespace
