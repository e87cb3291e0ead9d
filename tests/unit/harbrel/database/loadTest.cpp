#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>

#include "lib/file/fileLock.h"
#include "tests/support/cacheTest.h"

using DatabaseLoad = CacheTest;

TEST_F(DatabaseLoad, FirstLineDecides) {
    const struct {
        const char *text;
        bool isBackup, loads;
        std::string outcome;  // the version, or the words of the refusal
    } cases[] = {
        {"VERSION=1,7\nanswer K v\n", false, true, "1,7"},
        {"VERSION=0x1,0\r\nanswer K v", false, true, "1,0"},
        {"", false, false, "HBLNetCfgLoad - Database file cannot be empty, aborting"},
        {"version=1,0\n", false, false, "HBLNetCfgLoad - Database file must have version number, aborting"},
        {"\nVERSION=1,0\n", false, false, "HBLNetCfgLoad - Database file must have version number, aborting"},
        {"VERSION=2,0\n", false, false,
         "ParseVersionString - Unsupported major version, supported: 1, actual: 2"},
        {"VERSION=-1,0\n", false, false,
         "ParseVersionString - Cannot parse major version of database file, aborting parsing"},
        {"VERSION=1,0 \n", false, false,
         "ParseVersionString - Cannot parse or invalid minor version of database file, aborting parsing"},
        {"BACKUP_VERSION=1,3\nanswer K v\n", true, true, "1,3"},
        {"VERSION=1,0\nanswer K v\n", true, true, "0,0"},
    };
    for (const auto &row : cases) {
        ASSERT_EQ(row.loads, Load(row.text, row.isBackup)) << row.text;
        const std::string lines = log.Take();
        if (row.loads) {
            EXPECT_EQ("v", Answer(db, "K")) << row.text;
            EXPECT_EQ(row.outcome, std::to_string(db->majorVersion) + "," + std::to_string(db->minorVersion));
        } else {
            const std::string failure =
                "HBLNetCfgLoad - Failed to load database cache with contents of file: ";
            EXPECT_EQ(row.outcome + "\n" + failure + path + "\n", lines);
        }
        EXPECT_FALSE(std::filesystem::exists(path + ".lck")) << row.text;
    }
    EXPECT_TRUE(Load("", true));
}

TEST_F(DatabaseLoad, BadRecordCostsItselfAloneAndIsCountedByLine) {
    const std::string records = "answer A 1\nanswer B\n\nadd_bridge_mapping eth0 256\nanswer C 3";
    LoadRecords(records);  // cut off before its line end
    EXPECT_EQ("answer A 1\nanswer C 3\n", Records());
    const std::string failure = "HBLNetCfgLoad - Failed to parse record at line #: ";
    EXPECT_EQ(failure + "3, data: answer B\n" + failure + "4, data: \n" + failure +
                  "5, data: add_bridge_mapping eth0 256\n",
              log.Take());
    EXPECT_TRUE(HBLNetCfgAddAnswerString(db, "D", "4"));
    EXPECT_EQ(VERSION_LINE + records + "\nanswer D 4\n", ReadFileText(path));
    // The first line of a legacy file is a record and counts as line 1.
    ASSERT_TRUE(Load("answer B\n", true));
    EXPECT_EQ(failure + "1, data: answer B\n", log.Take());
}

TEST_F(DatabaseLoad, LineLimitIs2047Bytes) {
    LoadRecords("answer K " + std::string(2047 - 9, 'v') + "\n");
    EXPECT_FALSE(Load("VERSION=1,0\nanswer K " + std::string(2048 - 9, 'v') + "\n"));
    EXPECT_TRUE(log.Take().starts_with(
        "HBLNetCfgLoad - Error while reading database file, error: Argument list too long\n"));
}

TEST_F(DatabaseLoad, DefaultCacheIsLoadedOnce) {
    LoadRecords("");
    HBLLogSetMask(LOG_WRN);
    *HBLNetCfgDefaultSlot() = db;
    EXPECT_TRUE(HBLNetCfgLoad(path.c_str(), nullptr, false));
    EXPECT_EQ(db, std::exchange(*HBLNetCfgDefaultSlot(), nullptr));
    EXPECT_EQ("HBLNetCfgLoad - Network configuration database cache is already loaded\n", log.Take());
}

TEST_F(DatabaseLoad, LockIsHeldOnceAndGivenBack) {
    LoadRecords("");
    EXPECT_TRUE(HBLNetCfgUnlockConfig(db));  // not locked: nothing to do
    ASSERT_TRUE(HBLNetCfgLockConfig(db));
    HBLLogSetMask(LOG_ERR | LOG_INFO);
    EXPECT_FALSE(HBLNetCfgLockConfig(db));
    EXPECT_EQ("HBLNetCfgLockConfig - Database file is already locked\n", log.Take());
    int error = -1;
    EXPECT_EQ(nullptr, FileLock_Lock(path.c_str(), false, FILE_LOCK_TRYLOCK_WAIT, &error));
    EXPECT_EQ(0, error);
    EXPECT_TRUE(HBLNetCfgUnlockConfig(db));
    EXPECT_FALSE(std::filesystem::exists(path + ".lck"));
    // One that cannot be given back stays.
    ASSERT_TRUE(HBLNetCfgLockConfig(db));
    std::filesystem::remove_all(path + ".lck");
    for (int attempt = 0; attempt < 2; attempt++) {
        EXPECT_FALSE(HBLNetCfgUnlockConfig(db));
        EXPECT_EQ(0u, log.Take().find("HBLNetCfgUnlockConfig - Failed to unlock database file: " + path));
    }
    EXPECT_FALSE(HBLNetCfgLockConfig(db));
}
