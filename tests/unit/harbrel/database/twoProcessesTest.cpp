// Two loaded caches of one file, as two processes have them: neither loses the other's change.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "lib/harbrel/database/database.h"
#include "tests/support/command.h"
#include "tests/support/logCapture.h"
#include "tests/support/tempFolder.h"

namespace {

class TwoProcesses : public testing::Test {
  protected:
    TwoProcesses() {
        WriteFileText(path, "VERSION=1,0\nanswer OLD 1\n");
        EXPECT_TRUE(HBLNetCfgLoad(path.c_str(), &mine, false));
        EXPECT_TRUE(HBLNetCfgLoad(path.c_str(), &other, false));
    }
    ~TwoProcesses() override {
        HBLNetCfgUnload(&mine, false);
        HBLNetCfgUnload(&other, false);
    }
    // One exported call that changes something.
    static bool Change(HBLNetworkConfigurationDB *db, const char *key, const char *value) {
        const bool done = HBLNetCfgLockConfig(db) && HBLNetCfgAddAnswerString(db, key, value);
        return HBLNetCfgUnlockConfig(db) && done;
    }
    // What a last unload does to the file.
    void Rewrite(HBLNetworkConfigurationDB *db) {
        ASSERT_TRUE(NetCfgWriteDatabaseFile(db, (folder / "new").c_str(), false));
        ASSERT_EQ(0, rename((folder / "new").c_str(), path.c_str()));
    }
    static std::string Answer(HBLNetworkConfigurationDB *db, const char *key) {
        const char *value = nullptr;
        return HBLNetCfgGetAnswerString(db, key, &value) ? value : "(none)";
    }

    TempFolder folder;
    std::string path = folder / "networking";
    HBLNetworkConfigurationDB *mine = nullptr;
    HBLNetworkConfigurationDB *other = nullptr;
};

TEST_F(TwoProcesses, ChangesInTurnBuildOnEachOther) {
    EXPECT_TRUE(Change(mine, "A", "mine"));
    EXPECT_TRUE(Change(other, "B", "other"));
    EXPECT_TRUE(Change(mine, "A", "again"));
    EXPECT_TRUE(HBLNetCfgFollowFile(other));
    EXPECT_EQ("again", Answer(other, "A"));
    EXPECT_EQ("other", Answer(mine, "B"));
    EXPECT_EQ("VERSION=1,0\nanswer OLD 1\nanswer A mine\nanswer B other\nremove_answer A\nanswer A again\n",
              ReadFileText(path));
}

TEST_F(TwoProcesses, ChangeAfterTheOthersRewriteGoesToTheNewFile) {
    EXPECT_TRUE(Change(mine, "A", "mine"));
    EXPECT_TRUE(Change(other, "OLD", "2"));
    Rewrite(other);
    EXPECT_TRUE(Change(mine, "B", "mine"));
    EXPECT_EQ("VERSION=1,0\nanswer A mine\nanswer OLD 2\nanswer B mine\n", ReadFileText(path));
}

TEST_F(TwoProcesses, TextsHandedOutStayGood) {
    const char *before = nullptr;
    ASSERT_TRUE(HBLNetCfgGetAnswerString(mine, "OLD", &before));
    EXPECT_TRUE(Change(other, "OLD", "2"));
    EXPECT_TRUE(Change(mine, "A", "mine"));
    EXPECT_STREQ("1", before);
    EXPECT_EQ("2", Answer(mine, "OLD"));
}

TEST_F(TwoProcesses, CacheAloneReadsNothingAgain) {
    LogCapture log(HBL_MAX_LOG_MASK);
    EXPECT_TRUE(Change(mine, "A", "1"));
    EXPECT_TRUE(Change(mine, "A", "2"));
    EXPECT_EQ(std::string::npos, log.Take().find("another process"));
}

TEST_F(TwoProcesses, FileThatIsGoneOrNoDatabaseLeavesTheCacheAsItIs) {
    unlink(path.c_str());
    EXPECT_TRUE(Change(mine, "A", "1"));
    WriteFileText(path, "BACKUP_VERSION=1,0\n");
    EXPECT_TRUE(Change(mine, "B", "2"));
    EXPECT_EQ("1", Answer(mine, "OLD"));
    EXPECT_EQ("1", Answer(mine, "A"));
}

TEST_F(TwoProcesses, ChangeIsRefusedWhileTheFileCannotBeRead) {
    for (const std::string &text : {"VERSION=1,0\nanswer K " + std::string(3000, 'v') + "\n",
                                    std::string("VERSION=2,0\nanswer OLD 22\n")}) {
        WriteFileText(path, text);
        EXPECT_FALSE(HBLNetCfgLockConfig(mine));
        EXPECT_EQ(nullptr, mine->lockToken);
        EXPECT_EQ("1", Answer(mine, "OLD"));
        EXPECT_EQ(text, ReadFileText(path));
    }
}

}  // namespace
