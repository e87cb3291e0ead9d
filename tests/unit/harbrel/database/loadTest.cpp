#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "lib/file/fileLock.h"
#include "lib/harbrel/database/database.h"
#include "tests/support/command.h"
#include "tests/support/logCapture.h"
#include "tests/support/tempFolder.h"

namespace {

class DatabaseLoad : public testing::Test {
  protected:
    ~DatabaseLoad() override {
        if (db != nullptr) {
            HBLNetCfgUnload(&db, false);
        }
    }
    bool Load(const std::string &text, bool isBackup) {
        if (db != nullptr) {
            HBLNetCfgUnload(&db, false);
        }
        WriteFileText(path, text);
        return HBLNetCfgLoad(path.c_str(), &db, isBackup);
    }
    std::string Answer(const char *key) {
        const char *value = nullptr;
        return HBLNetCfgGetAnswerString(db, key, &value) ? value : "(none)";
    }

    TempFolder folder;
    std::string path = folder / "networking";
    HBLNetworkConfigurationDB *db = nullptr;
};

TEST_F(DatabaseLoad, FirstLineDecides) {
    struct Row {
        const char *text;
        bool isBackup;
        const char *failure;  // of a refused file, behind "HBLNetCfgLoad - "; null: it loads
        uint32_t major, minor;
    };
    static constexpr Row ROWS[] = {
        {"VERSION=1,0\nanswer K v\n", false, nullptr, 1, 0},
        {"VERSION=1,7\nanswer K v\n", false, nullptr, 1, 7},
        {"VERSION=0x1,0\r\nanswer K v", false, nullptr, 1, 0},
        {"", false, "Database file cannot be empty, aborting", 0, 0},
        {"version=1,0\n", false, "Database file must have version number, aborting", 0, 0},
        {"BACKUP_VERSION=1,0\n", false, "Database file must have version number, aborting", 0, 0},
        {"answer K v\n", false, "Database file must have version number, aborting", 0, 0},
        {"\nVERSION=1,0\n", false, "Database file must have version number, aborting", 0, 0},
        {"BACKUP_VERSION=1,3\nanswer K v\n", true, nullptr, 1, 3},
        {"VERSION=1,0\nanswer K v\n", true, nullptr, 0, 0},
        {"answer K v\n", true, nullptr, 0, 0},
    };
    for (const Row &row : ROWS) {
        LogCapture log;
        ASSERT_EQ(row.failure == nullptr, Load(row.text, row.isBackup)) << row.text;
        if (row.failure == nullptr) {
            EXPECT_EQ("v", Answer("K")) << row.text;
            EXPECT_EQ(row.major, db->majorVersion) << row.text;
            EXPECT_EQ(row.minor, db->minorVersion) << row.text;
        } else {
            EXPECT_EQ(std::string("HBLNetCfgLoad - ") + row.failure +
                          "\nHBLNetCfgLoad - Failed to load database cache with contents of file: " + path +
                          "\n",
                      log.Take())
                << row.text;
        }
        EXPECT_FALSE(std::filesystem::exists(path + ".lck")) << row.text;
    }
    EXPECT_TRUE(Load("", true));
    EXPECT_FALSE(Load("VERSION=2,0\n", false));
}

TEST_F(DatabaseLoad, BadRecordCostsItselfAloneAndIsCountedByLine) {
    LogCapture log;
    ASSERT_TRUE(Load("VERSION=1,0\nanswer A 1\nanswer B\n\nadd_bridge_mapping eth0 256\nanswer C 3", false));
    EXPECT_EQ("1", Answer("A"));
    EXPECT_EQ("3", Answer("C"));
    const std::string lines = log.Take();
    for (const char *number : {"#: 3, data: answer B\n", "#: 4, data: \n", "#: 5, data: add_bridge"}) {
        EXPECT_NE(std::string::npos, lines.find(std::string("Failed to parse record at line ") + number))
            << lines;
    }
    // The first line of a legacy file is a record and counts as line 1.
    ASSERT_TRUE(Load("answer B\n", true));
    EXPECT_NE(std::string::npos, log.Take().find("line #: 1, data: answer B\n"));
}

TEST_F(DatabaseLoad, LineLimitIs2047Bytes) {
    const std::string start = "VERSION=1,0\nanswer K ";
    EXPECT_TRUE(Load(start + std::string(2047 - 9, 'v') + "\n", false));
    LogCapture log;
    EXPECT_FALSE(Load(start + std::string(2048 - 9, 'v') + "\n", false));
    EXPECT_EQ(0u, log.Take().find("HBLNetCfgLoad - Error while reading database file, error: "));
}

TEST_F(DatabaseLoad, CutAtEveryByteLoadsOrIsRefused) {
    const std::string text =
        "VERSION=1,0\nanswer K v\nremove_answer K\nadd_nat_portfwd 8 tcp 80 10.0.0.2 80 web\n"
        "add_dhcp_mac_to_ip 8 02:00:00:11:22:33 10.0.0.3\nadd_bridge_mapping eth0 2\n";
    for (size_t length = 0; length <= text.size(); length++) {
        const bool hasVersion = length >= std::string("VERSION=1,0").size();
        EXPECT_EQ(hasVersion, Load(text.substr(0, length), false)) << length;
    }
    EXPECT_EQ("(none)", Answer("K"));
}

TEST_F(DatabaseLoad, JournalGoesBehindWhatWasRead) {
    ASSERT_TRUE(Load("VERSION=1,0\nanswer A 1", false));  // cut off before its line end
    EXPECT_TRUE(HBLNetCfgAddAnswerString(db, "B", "2"));
    EXPECT_EQ("VERSION=1,0\nanswer A 1\nanswer B 2\n", ReadFileText(path));
}

TEST_F(DatabaseLoad, WhatIsNoReadableFileIsRefusedWithTheReason) {
    LogCapture log;
    EXPECT_FALSE(HBLNetCfgLoad(path.c_str(), &db, false));
    EXPECT_NE(std::string::npos, log.Take().find("HBLNetCfgLoad - Import file does not exist\n"));
    ASSERT_EQ(0, mkdir(path.c_str(), 0755));
    EXPECT_FALSE(HBLNetCfgLoad(path.c_str(), &db, false));
    EXPECT_EQ(0u, log.Take().find("HBLNetCfgLoad - Unable to open network configuration database file, "
                                  "error: Is a directory\n"));
    EXPECT_FALSE(HBLNetCfgLoad(path.c_str(), &db, true));
    EXPECT_EQ(0u, log.Take().find("HBLNetCfgLoad - Failed to read version number, error: Is a directory\n"));
    EXPECT_FALSE(std::filesystem::exists(path + ".lck"));
}

TEST_F(DatabaseLoad, LockIsHeldOnceAndGivenBack) {
    ASSERT_TRUE(Load("VERSION=1,0\n", false));
    EXPECT_TRUE(HBLNetCfgUnlockConfig(db));  // not locked: nothing to do
    ASSERT_TRUE(HBLNetCfgLockConfig(db));
    LogCapture log(LOG_ERR | LOG_INFO);
    EXPECT_FALSE(HBLNetCfgLockConfig(db));
    EXPECT_EQ("HBLNetCfgLockConfig - Database file is already locked\n", log.Take());
    int error = -1;
    EXPECT_EQ(nullptr, FileLock_Lock(path.c_str(), false, FILE_LOCK_TRYLOCK_WAIT, &error));
    EXPECT_EQ(0, error);
    EXPECT_TRUE(HBLNetCfgUnlockConfig(db));
    EXPECT_FALSE(std::filesystem::exists(path + ".lck"));
}

TEST_F(DatabaseLoad, UnlockThatFailsLeavesTheCacheLocked) {
    ASSERT_TRUE(Load("VERSION=1,0\n", false));
    ASSERT_TRUE(HBLNetCfgLockConfig(db));
    std::filesystem::remove_all(path + ".lck");
    for (int attempt = 0; attempt < 2; attempt++) {
        LogCapture log;
        EXPECT_FALSE(HBLNetCfgUnlockConfig(db));
        EXPECT_EQ(0u, log.Take().find("HBLNetCfgUnlockConfig - Failed to unlock database file: " + path));
    }
    EXPECT_FALSE(HBLNetCfgLockConfig(db));
}

TEST_F(DatabaseLoad, SecondLoadOfTheDefaultCacheIsNoRefresh) {
    WriteFileText(path, "VERSION=1,0\nanswer K v\n");
    ASSERT_TRUE(HBLNetCfgLoad(path.c_str(), nullptr, false));
    WriteFileText(path, "VERSION=1,0\nanswer K w\n");
    LogCapture log(LOG_WRN);
    EXPECT_TRUE(HBLNetCfgLoad(path.c_str(), nullptr, false));
    EXPECT_EQ("HBLNetCfgLoad - Network configuration database cache is already loaded\n", log.Take());
    EXPECT_EQ("v", Answer("K"));
    HBLNetCfgUnload(nullptr, false);
    EXPECT_EQ(nullptr, *HBLNetCfgDefaultSlot());
    LogCapture errors;
    EXPECT_TRUE(HBLNetCfgUnload(nullptr, false));
    EXPECT_EQ("HBLNetCfgUnload - Requested cache is not loaded\n", errors.Take());
}

}  // namespace
