#include "lib/file/fileLock.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <thread>

#include "lib/file/fileLockInternal.h"
#include "tests/support/command.h"
#include "tests/support/otherProcess.h"
#include "tests/support/tempFolder.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr char MEMBER_NAME[] = "M[0-9]{5}\\.lck";

// A directory of its own with the path to be locked in it, which need not exist.
class FileLock : public testing::Test {
  protected:
    FileLockToken *Lock(bool readOnly, uint32_t limit, int expectedError = 0) {
        int error = -1;
        FileLockToken *token = FileLock_Lock(path_.c_str(), readOnly, limit, &error);
        EXPECT_EQ(error, expectedError);
        return token;
    }
    void Unlock(FileLockToken *token) { EXPECT_EQ(FileLock_Unlock(path_.c_str(), token), 0); }

    void Put(const std::string &name, std::string content, size_t size = FILE_LOCK_MEMBER_SIZE) {
        fs::create_directory(lockDir_);
        content.resize(size);
        WriteFileText(lockDir_ + "/" + name, content);
    }
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const fs::directory_entry &entry : fs::directory_iterator(lockDir_)) {
            names.push_back(entry.path().filename());
        }
        return names;
    }
    std::string Record(pid_t pid, unsigned ticket, const std::string &rest) const {
        return std::string(FileLockGetMachineID()) + " " + std::to_string(pid) + " " +
               std::to_string(ticket) + " " + rest;
    }

    TempFolder folder_;
    const std::string path_ = folder_ / "database";
    const std::string lockDir_ = path_ + ".lck";
};

// A waiter that is in nobody's way.
FileLockValues OwnValues() {
    FileLockValues own{};
    own.machineID = own.executionID = own.locationChecksum = "own";
    own.lockType = FILE_LOCK_EXCLUSIVE;
    own.memberName = "M50000.lck";
    own.lamportNumber = 7;
    return own;
}

}  // namespace

TEST_F(FileLock, WritesARecordOf512BytesAndLeavesNothingBehind) {
    FileLockToken *token = Lock(false, 0);
    ASSERT_THAT(Names(), ElementsAre(testing::MatchesRegex(MEMBER_NAME)));
    const std::string record = ReadFileText(lockDir_ + "/" + Names()[0]);
    std::string expected = Record(getpid(), 1,
                                  "X " + std::to_string(FileLockProcessCreationTime(getpid())) +
                                      " lc=" + FileLockLocationChecksum(lockDir_.c_str()));
    expected.resize(FILE_LOCK_MEMBER_SIZE);
    EXPECT_EQ(record, expected);
    EXPECT_EQ(fs::status(lockDir_).permissions(), fs::perms::all) << "whatever the umask";
    Unlock(token);
    EXPECT_TRUE(fs::is_empty(folder_.Path()));
}

TEST_F(FileLock, SharedLocksGoTogetherAndExclusiveOnesAlone) {
    FileLockToken *first = Lock(true, 0);
    FileLockToken *second = Lock(true, 0);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(Lock(false, 0), nullptr);
    Unlock(first);
    EXPECT_EQ(Lock(false, 0), nullptr);
    Unlock(second);
    FileLockToken *exclusive = Lock(false, 0);
    ASSERT_NE(exclusive, nullptr);
    EXPECT_EQ(Lock(true, 0), nullptr);
    EXPECT_EQ(Lock(false, 150), nullptr);
    EXPECT_EQ(Names().size(), 1u);
    Unlock(exclusive);
}

TEST_F(FileLock, SpellingsOfOnePathMeet) {
    FileLockToken *token = Lock(false, 0);
    fs::create_directory(folder_ / "sub");
    const fs::path former = fs::current_path();
    fs::current_path(folder_.Path());
    for (const char *spelling : {"database", "./database", "sub/../database"}) {
        int error = -1;
        EXPECT_EQ(FileLock_Lock(spelling, false, 0, &error), nullptr) << spelling;
        EXPECT_EQ(error, 0) << spelling;
    }
    EXPECT_EQ(FileLock_Unlock("sub/..//database", token), 0);
    fs::current_path(former);
    EXPECT_FALSE(fs::exists(lockDir_));
}

TEST_F(FileLock, FailuresOfThePathAreReported) {
    const std::pair<std::string, int> cases[] = {
        {"", EINVAL}, {"missing/x", EINVAL}, {folder_ / "missing/x", ENOENT}, {"/dev/null/x", ENOTDIR}};
    testing::internal::CaptureStderr();
    for (const auto &[path, expectedError] : cases) {
        int error = -1;
        EXPECT_EQ(FileLock_Lock(path.c_str(), false, 0, &error), nullptr) << path;
        EXPECT_EQ(error, expectedError) << path;
    }
    FileLockToken *token = Lock(false, 0);
    fs::remove_all(lockDir_);
    EXPECT_EQ(FileLock_Unlock(path_.c_str(), token), ENOENT);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "the caller's report is all that is seen";
}

TEST_F(FileLock, ScanDeletesWhatIsBrokenOrDead) {
    const pid_t dead = StartChild([] { return true; });
    ASSERT_TRUE(EndsWell(dead));
    const struct {
        const char *name;
        std::string content;
        size_t size;
    } cases[] = {
        {"foo.lck", "", 0},
        {"M00001.lck~\xC3", "", 0},
        {"M00001.lck", Record(getpid(), 5, "X"), 511},
        {"M00009.lck", std::string(512, 'x'), 512},
        {"M00010.lck", Record(dead, 5, "X"), 512},
        {"M00013.lck", Record(getpid(), 5, "X [ lc=1"), 512},
    };
    for (const auto &c : cases) {
        Put(c.name, c.content, c.size);
        FileLockToken *token = Lock(false, 0);
        ASSERT_NE(token, nullptr) << c.name;
        ASSERT_EQ(Names().size(), 1u) << c.name;
        // Gone before the numbers were compared: the ticket is the first.
        EXPECT_THAT(ReadFileText(lockDir_ + "/" + Names()[0]), StartsWith(Record(getpid(), 1, "X")))
            << c.name;
        Unlock(token);
    }
    fs::create_directory(lockDir_);
    ASSERT_EQ(mkfifo((lockDir_ + "/M00001.lck").c_str(), 0600), 0);
    WriteFileText(path_, std::string(Record(getpid(), 5, "X")).append(512, '\0').substr(0, 512));
    fs::create_symlink(path_, lockDir_ + "/M00002.lck");
    Unlock(Lock(false, 0));
}

TEST_F(FileLock, LivingMembersAreRespected) {
    const std::pair<std::string, bool> cases[] = {
        {"otherMachine 1 5 X", false},  // nothing can be told about its process
        {Record(getpid(), 5, "X"), false},
        {Record(getpid(), 5, "X [ lc=" + FileLockLocationChecksum(lockDir_.c_str())), false},
        {Record(getppid(), 5, "X [ lc=1"), false},  // only the own process can tell a move
        {"otherMachine 1 5 S", true},
    };
    for (const auto &[record, granted] : cases) {
        Put("M00001.lck", record);
        FileLockToken *token = Lock(true, 1);
        EXPECT_EQ(token != nullptr, granted) << record;
        if (token != nullptr) {
            const std::string own = Names()[0] == "M00001.lck" ? Names()[1] : Names()[0];
            EXPECT_THAT(ReadFileText(lockDir_ + "/" + own), StartsWith(Record(getpid(), 6, "S"))) << record;
            Unlock(token);
        }
        EXPECT_THAT(Names(), ElementsAre("M00001.lck")) << record;
    }
}

TEST_F(FileLock, TicketsThenNamesDecideWhoIsAhead) {
    const std::tuple<uint32_t, const char *, int> cases[] = {
        {6, "M60000.lck", EAGAIN}, {7, "M49999.lck", EAGAIN}, {7, "M50001.lck", 0}, {8, "M40000.lck", 0}};
    for (const auto &[ticket, name, result] : cases) {
        FileLockValues own = OwnValues();
        FileLockValues member = own;
        member.lamportNumber = ticket;
        member.memberName = name;
        EXPECT_EQ(WaitForPossession(lockDir_.c_str(), name, &member, &own), result) << ticket << name;
    }
}

TEST_F(FileLock, ObjectsInPlaceOfTheLockDirectory) {
    WriteFileText(lockDir_, "old style");
    EXPECT_EQ(Lock(false, FILE_LOCK_INFINITE_WAIT), nullptr);
    EXPECT_EQ(ReadFileText(lockDir_), "old style");
    fs::remove(lockDir_);

    ASSERT_EQ(mkfifo(lockDir_.c_str(), 0600), 0);
    Unlock(Lock(false, 0));
    WriteFileText(folder_ / "bystander", "");
    for (const char *target : {"nowhere", "."}) {
        fs::create_symlink(target, lockDir_);
        Unlock(Lock(false, 0));
        EXPECT_FALSE(fs::is_symlink(lockDir_)) << target;
    }
    EXPECT_TRUE(fs::exists(folder_ / "bystander"));
}

// Everyone can work out the number that a process will draw.
TEST_F(FileLock, LinkWhereTheEntryWillStandIsNotFollowed) {
    const auto lockAsParent = [this](int expectedError) {
        FileLockSetPidOverride(getppid());
        FileLockToken *token = Lock(false, 0, expectedError);
        FileLockSetPidOverride(0);
        return token;
    };
    FileLockToken *token = lockAsParent(0);
    const std::string entry = lockDir_ + "/E" + Names()[0].substr(1);
    Unlock(token);
    Unlock(Lock(false, 0));  // after a draw of another process the parent's begin anew
    fs::create_directory(lockDir_);
    fs::create_symlink(path_, entry);
    EXPECT_EQ(lockAsParent(ELOOP), nullptr);
    EXPECT_FALSE(fs::exists(path_));
}

TEST_F(FileLock, ReadOnlyPlaceGrantsSharedLocksWithNothingOnDisk) {
    fs::permissions(folder_.Path(), static_cast<fs::perms>(0555));
    EXPECT_TRUE(EndsWell(StartChild([this] {
        if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0) {
            return false;
        }
        FileLockToken *first = Lock(true, 0);
        FileLockToken *second = Lock(true, 0);
        return first != nullptr && second != nullptr && !fs::exists(lockDir_) &&
               FileLock_Unlock(path_.c_str(), first) == 0 && FileLock_Unlock(path_.c_str(), second) == 0 &&
               Lock(false, 0, EACCES) == nullptr && !HasFailure();
    })));
}

TEST_F(FileLock, StuckDoorwayIsClearedAfterEightSeconds) {
    fs::create_directories(lockDir_ + "/D00007.lck");
    Put("E00007.lck", "");
    Put("M00007.lck", "");
    FileLockValues own{};
    own.activeList = {{0, true, "D00007.lck"}, {4000, false, "D00008.lck"}};
    for (int turn = 1; turn <= 41; turn++) {
        FileLockAgeActiveList(lockDir_.c_str(), &own);
        ASSERT_EQ(own.activeList.size(), 1u) << turn;
        EXPECT_EQ(own.activeList[0].age, 200u * turn);
        EXPECT_FALSE(own.activeList[0].marked);
        own.activeList[0].marked = true;  // as the next turn finds it
    }
    EXPECT_EQ(Names().size(), 3u);
    FileLockAgeActiveList(lockDir_.c_str(), &own);
    EXPECT_THAT(own.activeList, IsEmpty());
    EXPECT_THAT(Names(), IsEmpty());
}

// The doorway is old enough to be cleared in the first turn; the members are judged in the next one.
TEST_F(FileLock, MembersAreJudgedOnlyBehindAnEmptyDoorway) {
    fs::create_directories(lockDir_ + "/D00007.lck");
    Put("M00001.lck", "otherMachine 1 5 X");
    FileLockValues own = OwnValues();
    own.activeList = {{8200, false, "D00007.lck"}};
    const FileLockScanner judgeBehindDoorway = [](const char *lockDir, const char *,
                                                  const FileLockValues *member, FileLockValues *values) {
        EXPECT_FALSE(fs::exists(std::string(lockDir) + "/D00007.lck"));
        values->lamportNumber = member->lamportNumber;
        return 0;
    };
    EXPECT_EQ(ScanDirectory(lockDir_.c_str(), judgeBehindDoorway, &own, true), 0);
    EXPECT_EQ(own.lamportNumber, 5u);
}

// What the waiter read before it paused, and what it finds afterwards.
TEST_F(FileLock, WaiterSeesThatTheMemberHasMadeWay) {
    const pid_t dead = StartChild([] { return true; });
    ASSERT_TRUE(EndsWell(dead));
    const std::string deadID = std::to_string(dead);
    const struct {
        const char *machineID, *executionID;
        std::string found;
        bool stays;
    } cases[] = {
        {"otherMachine", "1", "otherMachine 2 8 X", true},  // its name is used anew
        {FileLockGetMachineID(), deadID.c_str(), Record(dead, 5, "X"), false},
    };
    for (const auto &c : cases) {
        Put("M00001.lck", c.found);
        FileLockValues own = OwnValues();
        own.machineID = FileLockGetMachineID();
        own.waitTime = 900;  // slept for members before this one
        own.msecMaxWaitTime = 1000;
        FileLockValues member = own;
        member.machineID = c.machineID;
        member.executionID = c.executionID;
        member.memberName = "M00001.lck";
        member.lamportNumber = 5;
        EXPECT_EQ(WaitForPossession(lockDir_.c_str(), "M00001.lck", &member, &own), 0) << c.found;
        EXPECT_EQ(own.waitTime, 1000u) << c.found;
        EXPECT_EQ(fs::exists(lockDir_ + "/M00001.lck"), c.stays) << c.found;
    }
}

// Each round changes a number in a file in two steps; every lost update shows in the sum.
TEST_F(FileLock, ProcessesAndThreadsExcludeEachOther) {
    constexpr int ROUNDS = 4;
    const std::string counter = folder_ / "counter";
    WriteFileText(counter, "0");
    const auto rounds = [&] {
        for (int i = 0; i < ROUNDS; i++) {
            FileLockToken *token = Lock(false, FILE_LOCK_INFINITE_WAIT);
            const int value = std::stoi(ReadFileText(counter));
            sched_yield();
            WriteFileText(counter, std::to_string(value + 1));
            Unlock(token);
        }
    };
    const auto twoThreads = [&] {
        std::thread other(rounds);
        rounds();
        other.join();
        return !HasFailure();
    };
    const pid_t child = StartChild(twoThreads);
    twoThreads();
    EXPECT_TRUE(EndsWell(child));
    EXPECT_EQ(ReadFileText(counter), std::to_string(4 * ROUNDS));
    EXPECT_FALSE(fs::exists(lockDir_));
}
