// Two loaded caches of one file, as two processes have them: neither loses the other's change.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "lib/harbrel/database/carryOver.h"
#include "lib/misc/owners.h"
#include "tests/support/cacheTest.h"
#include "tests/support/fileSizeLimit.h"

namespace {

class TwoProcesses : public CacheTest {
  protected:
    TwoProcesses() {
        LoadRecords("answer OLD 1\n");
        EXPECT_TRUE(HBLNetCfgLoad(path.c_str(), &other, false));
    }
    ~TwoProcesses() override { HBLNetCfgUnload(&other, false); }
    // One exported call that changes something.
    static bool Change(HBLNetworkConfigurationDB *cache, const char *key, const char *value) {
        const bool done = HBLNetCfgLockConfig(cache) && HBLNetCfgAddAnswerString(cache, key, value);
        return HBLNetCfgUnlockConfig(cache) && done;
    }
    HBLNetworkConfigurationDB *const &mine = db;
    HBLNetworkConfigurationDB *other = nullptr;
};

TEST_F(TwoProcesses, ChangesInTurnBuildOnEachOtherAlsoAcrossARewrite) {
    EXPECT_TRUE(Change(mine, "A", "mine"));
    EXPECT_TRUE(Change(other, "B", "other"));
    EXPECT_TRUE(Change(mine, "A", "again"));
    EXPECT_EQ("other", Answer(mine, "B"));
    EXPECT_EQ("VERSION=1,0\nanswer OLD 1\nanswer A mine\nanswer B other\nremove_answer A\nanswer A again\n",
              ReadFileText(path));
    EXPECT_TRUE(HBLNetCfgChangeWithoutLock(other, [] { return true; }));
    ASSERT_TRUE(NetCfgWriteDatabaseFile(other, (folder / "new").c_str(), false));
    ASSERT_EQ(0, rename((folder / "new").c_str(), path.c_str()));
    EXPECT_TRUE(Change(mine, "C", "mine"));
    EXPECT_EQ("VERSION=1,0\nanswer A again\nanswer B other\nanswer OLD 1\nanswer C mine\n",
              ReadFileText(path));
}

TEST_F(TwoProcesses, ChangeThatMeetsARewriteIsMadeAgainOnTheNewFile) {
    int made = 0;
    EXPECT_TRUE(HBLNetCfgChangeWithoutLock(mine, [&] {
        const bool done = HBLNetCfgAddAnswerString(mine, "A", "1");
        if (++made == 1) {
            WriteFileText(folder / "new", "VERSION=1,0\nanswer OLD 1\nanswer B 2\n");
            EXPECT_EQ(0, rename((folder / "new").c_str(), path.c_str()));
        }
        return done;
    }));
    EXPECT_EQ(2, made);
    EXPECT_EQ("2", Answer(mine, "B"));
    EXPECT_EQ("VERSION=1,0\nanswer OLD 1\nanswer B 2\nanswer A 1\n", ReadFileText(path));
    EXPECT_EQ(nullptr, mine->lockToken);
}

TEST_F(TwoProcesses, RewriteCarriesOverWhatReachedTheFormerFileAfterItsLastLook) {
    for (const bool wholeLast : {true, false}) {
        const std::string text = wholeLast ? "VERSION=1,0\nanswer OLD 1\n" : "VERSION=1,0\nanswer OLD 1";
        ASSERT_TRUE(Load(text));
        HBLNetCfgUnload(&other, false);
        ASSERT_TRUE(HBLNetCfgLoad(path.c_str(), &other, false));
        const FileDescriptor former(open(path.c_str(), O_RDONLY | O_CLOEXEC));
        EXPECT_TRUE(HBLNetCfgAddAnswerString(other, "B", "2"));
        ASSERT_TRUE(NetCfgWriteDatabaseFile(mine, (folder / "new").c_str(), false));
        ASSERT_EQ(0, rename((folder / "new").c_str(), path.c_str()));
        const std::string rewritten = ReadFileText(path);
        OnFullDisk(rewritten.size() + 5, [&] { NetCfgCarryOver(mine, "Test", former.get()); });
        EXPECT_EQ(rewritten, ReadFileText(path)) << "no part of a line";
        NetCfgCarryOver(mine, "Test", former.get());
        EXPECT_EQ("VERSION=1,0\nanswer OLD 1\nanswer B 2\n", ReadFileText(path));
    }
}

TEST_F(TwoProcesses, TextsHandedOutStayGood) {
    const char *before = nullptr;
    ASSERT_TRUE(HBLNetCfgGetAnswerString(mine, "OLD", &before));
    EXPECT_TRUE(Change(other, "OLD", "2"));
    EXPECT_TRUE(Change(mine, "A", "mine"));
    EXPECT_STREQ("1", before);
    EXPECT_EQ("2", Answer(mine, "OLD"));
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
