#include "lib/file/fileLock.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <thread>

#include "lib/file/fileLockInternal.h"
#include "tests/support/command.h"
#include "tests/support/generalLog.h"
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
    void Unlock(FileLockToken *token) {
        ASSERT_NE(token, nullptr) << "no lock was granted";
        EXPECT_EQ(FileLock_Unlock(path_.c_str(), token), 0);
    }

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

    // An attempt in the lock directory that is in nobody's way.
    FileLockAttempt Attempt() {
        fs::create_directory(lockDir_);
        FileLockAttempt attempt{.directory = LockDirectory(lockDir_)};
        EXPECT_EQ(attempt.directory.FindFolder(), 0);
        EXPECT_EQ(attempt.directory.Open(), 0);
        FileLockValues &own = attempt.own;
        own.machineID = own.executionID = "own";
        own.locationChecksum = "own";
        own.lockType = "X";
        own.memberName = "M50000.lck";
        own.lamportNumber = 7;
        return attempt;
    }

    TempFolder folder_;
    const std::string path_ = folder_ / "database";
    const std::string lockDir_ = path_ + ".lck";
};

bool BecomeOtherUser() {
    constexpr uid_t NOBODY = 65534;
    return geteuid() != 0 || setresuid(NOBODY, NOBODY, NOBODY) == 0;
}

// Exchanges its own empty directory at `place` with a link to `target` as fast as it can, for ever.
[[noreturn]] void ExchangeWithoutEnd(const std::string &place, const std::string &spare,
                                     const std::string &target, std::atomic<int> *exchanges) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    BecomeOtherUser();
    for (;;) {
        if (renameat2(AT_FDCWD, place.c_str(), AT_FDCWD, spare.c_str(), RENAME_EXCHANGE) == 0) {
            (*exchanges)++;
            continue;
        }
        for (const std::string &path : {place, spare}) {
            rmdir(path.c_str());
            unlink(path.c_str());
        }
        mkdir(place.c_str(), 0777);
        if (symlink(target.c_str(), spare.c_str()) != 0) {
            sched_yield();
        }
    }
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
    GeneralLog log;
    EXPECT_EQ(Lock(true, 0), nullptr);
    EXPECT_EQ(Lock(false, 150), nullptr);
    ASSERT_EQ(Names().size(), 1u);
    EXPECT_EQ(log.Take(), "FILE: WaitForPossession timeout on '" + lockDir_ + "/" + Names()[0] +
                              "' due to a local process (" + std::to_string(getpid()) + ")\n");
    Unlock(exclusive);
}

TEST_F(FileLock, SpellingsOfOnePathMeet) {
    FileLockToken *token = Lock(false, 0);
    fs::create_directory(folder_ / "sub");
    fs::create_directory_symlink(".", folder_ / "link");
    const fs::path former = fs::current_path();
    fs::current_path(folder_.Path());
    int error = -1;
    for (const char *spelling : {"database", "./database", "sub/../database", "link/database"}) {
        EXPECT_EQ(FileLock_Lock(spelling, false, 0, &error), nullptr) << spelling;
        EXPECT_EQ(error, 0) << spelling;
    }
    EXPECT_EQ(FileLock_Unlock("sub/..//database", token), 0);
    fs::current_path(former);
    EXPECT_FALSE(fs::exists(lockDir_));
}

TEST_F(FileLock, FailuresOfThePathAreReported) {
    const std::string create = "warning: FILE: CreateEntryDirectory ";
    const std::string missing = folder_ / "missing/x";
    const std::tuple<std::string, int, std::string> cases[] = {
        {"", EINVAL, ""},
        {"missing/x", EINVAL, ""},
        {missing, ENOENT, create + "creation failure on '" + missing + ".lck': No such file or directory\n"},
        {"/dev/null/x", ENOTDIR, create + "stat failure on '/dev/null/x.lck': Not a directory\n"},
        {"/proc/self/x", ENOENT,
         create + "creation failure on '/proc/" + std::to_string(getpid()) +
             "/x.lck': No such file or directory\n"},
    };
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    for (const auto &[path, expectedError, message] : cases) {
        int error = -1;
        EXPECT_EQ(FileLock_Lock(path.c_str(), false, 0, &error), nullptr) << path;
        EXPECT_EQ(error, expectedError) << path;
        GeneralLog log;
        FileLock_Lock(path.c_str(), false, 0, &error);
        EXPECT_EQ(log.Take(), message);
    }
    FileLockToken *token = Lock(false, 0);
    fs::remove_all(lockDir_);
    EXPECT_EQ(FileLock_Unlock(path_.c_str(), token), ENOENT);
    EXPECT_EQ(testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr(), "")
        << "the caller's report is all that is seen";
}

TEST_F(FileLock, ScanDeletesWhatIsBrokenOrDead) {
    const pid_t dead = StartChild([] { return true; });
    ASSERT_TRUE(EndsWell(dead));
    const std::string discarding = "FILE: ScanDirectory discarding ";
    const std::string values = "warning: FILE: FileLockMemberValues ";
    const std::string corrupt = values + "removing problematic lock file '" + lockDir_ + "/";
    const struct {
        const char *name;
        std::string content;
        size_t size;
        std::string messages;
    } cases[] = {
        {"foo.lck", "", 0, discarding + "foo.lck from " + lockDir_ + "'; invalid file name.\n"},
        {"M00001.lck~\xC3", "", 0,
         discarding + "M00001.lck~\xC3 from " + lockDir_ + "'; invalid file name.\n"},
        {"M00001.lck", Record(getpid(), 5, "X"), 511,
         values + "file '" + lockDir_ + "/M00001.lck': size 511, required size 512\n" + corrupt +
             "M00001.lck'\n"},
        {"M00009.lck", std::string(512, 'x'), 512, corrupt + "M00009.lck'\n"},
        {"M00008.lck", "a 1 ? X", 512,
         values + "Lamport number conversion error\n" + corrupt + "M00008.lck'\n"},
        {"M00007.lck", "a 1 2 Y", 512, values + "unknown lock type 'Y'\n" + corrupt + "M00007.lck'\n"},
        {"M00010.lck", Record(dead, 5, "X"), 512,
         discarding + "M00010.lck from " + lockDir_ + "': invalid executionID.\n"},
        {"M00013.lck", Record(getpid(), 5, "X [ lc=1"), 512,
         discarding + "M00013.lck from " + lockDir_ + "': lock file has been moved.\n"},
    };
    GeneralLog log;
    for (const auto &c : cases) {
        Put(c.name, c.content, c.size);
        FileLockToken *token = Lock(false, 0);
        EXPECT_EQ(log.Take(), c.messages);
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
        FileLockAttempt attempt = Attempt();
        FileLockValues member = attempt.own;
        member.lamportNumber = ticket;
        member.memberName = name;
        EXPECT_EQ(WaitForPossession(member, &attempt), result) << ticket << name;
    }
}

TEST_F(FileLock, ObjectsInPlaceOfTheLockDirectory) {
    GeneralLog log;
    WriteFileText(lockDir_, "old style");
    EXPECT_EQ(Lock(false, FILE_LOCK_INFINITE_WAIT), nullptr);
    EXPECT_EQ(log.Take(), "FILE: CreateEntryDirectory: '" + lockDir_ + "' exists; an old style lock file?\n");
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

// What another user exchanges between two looks at it leads the lock into no other directory.
TEST_F(FileLock, ExchangedLockDirectoryHarmsNothingElsewhere) {
    fs::permissions(folder_.Path(), static_cast<fs::perms>(01777));
    const TempFolder elsewhere;
    WriteFileText(elsewhere / "bystander", "");
    WriteFileText(elsewhere / "M00001.lck", "");
    auto *exchanges = static_cast<std::atomic<int> *>(
        mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    const pid_t attacker = StartChild([&] {
        ExchangeWithoutEnd(lockDir_, folder_ / "spare", elsewhere.Path(), exchanges);
        return false;
    });
    const auto deadline = std::chrono::steady_clock::now() + CONDITION_DEADLINE;
    const auto goesOn = [&](int attempts) {
        return (attempts < 500 || *exchanges < 5000) && std::chrono::steady_clock::now() < deadline;
    };
    for (int attempts = 0; goesOn(attempts); attempts++) {
        int error = 0;
        FileLockToken *token = FileLock_Lock(path_.c_str(), false, 0, &error);
        if (token != nullptr) {
            FileLock_Unlock(path_.c_str(), token);
        }
    }
    kill(attacker, SIGKILL);
    EXPECT_FALSE(EndsWell(attacker));
    EXPECT_GT(*exchanges, 100);
    munmap(exchanges, sizeof *exchanges);
    EXPECT_TRUE(fs::exists(elsewhere / "bystander"));
    EXPECT_EQ(std::distance(fs::directory_iterator(elsewhere.Path()), {}), 2);
}

// Everyone can work out the number that a process will draw, and put a trap under the name of its entry file.
TEST_F(FileLock, NothingWhereTheEntryWillStandIsWrittenThrough) {
    const auto lockAsParent = [this] {
        FileLockSetPidOverride(getppid());
        FileLockToken *token = Lock(false, 0);
        FileLockSetPidOverride(0);
        return token;
    };
    FileLockToken *token = lockAsParent();
    const std::string entry = lockDir_ + "/E" + Names()[0].substr(1);
    Unlock(token);
    WriteFileText(path_, "precious");
    const std::pair<const char *, int (*)(const char *, const char *)> traps[] = {{"symlink", symlink},
                                                                                  {"link", link}};
    for (const auto &[kind, lay] : traps) {
        Unlock(Lock(false, 0));  // after a draw of another process the parent's begin anew
        fs::create_directory(lockDir_);
        ASSERT_EQ(lay(path_.c_str(), entry.c_str()), 0) << kind;
        Unlock(lockAsParent());
        EXPECT_EQ(ReadFileText(path_), "precious") << kind;
    }
}

TEST_F(FileLock, DirectoryOfAThirdUserIsWorkedInButNotTidied) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only the superuser can give a directory away";
    }
    fs::create_directory(lockDir_);
    ASSERT_EQ(chown(lockDir_.c_str(), 65534, 65534), 0);
    fs::permissions(lockDir_, fs::perms::all);
    FileLockToken *token = Lock(false, 0);
    WriteFileText(lockDir_ + "/foo.lck", "");
    Lock(false, 0, EPERM);
    EXPECT_TRUE(fs::exists(lockDir_ + "/foo.lck"));
    Unlock(token);
    EXPECT_THAT(Names(), ElementsAre("foo.lck"));
}

TEST_F(FileLock, DirectoryThatCannotBeReadIsADomainError) {
    fs::permissions(folder_.Path(), static_cast<fs::perms>(0755));
    fs::create_directory(lockDir_);
    fs::permissions(lockDir_, static_cast<fs::perms>(0333));
    EXPECT_TRUE(EndsWell(StartChild([this] {
        GeneralLog log;
        return BecomeOtherUser() && Lock(true, 0, EDOM) == nullptr && !HasFailure() &&
               log.Take() == "FILE: ScanDirectory: Could not read the directory '" + lockDir_ + "': 13\n";
    })));
    EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(FileLock, ReadOnlyPlaceGrantsSharedLocksWithNothingOnDisk) {
    fs::permissions(folder_.Path(), static_cast<fs::perms>(0555));
    EXPECT_TRUE(EndsWell(StartChild([this] {
        GeneralLog log;
        if (!BecomeOtherUser()) {
            return false;
        }
        FileLockToken *first = Lock(true, 0);
        FileLockToken *second = Lock(true, 0);
        const std::string said = "warning: FILE: CreateEntryDirectory creation failure on '" + lockDir_ +
                                 "': Permission denied\n" +
                                 "warning: FILE: FileLockIntrinsic implicit S lock succeeded on '" + path_ +
                                 "'.\n";
        return log.Take() == said + said && first != nullptr && second != nullptr && !fs::exists(lockDir_) &&
               FileLock_Unlock(path_.c_str(), first) == 0 && FileLock_Unlock(path_.c_str(), second) == 0 &&
               Lock(false, 0, EACCES) == nullptr && !HasFailure();
    })));
}

TEST_F(FileLock, DoorwayEndsTheWaitWhereItCannotBeClearedOrNeverEmpties) {
    fs::create_directories(lockDir_ + "/D00007.lck/full");
    FileLockAttempt stuck = Attempt();
    stuck.activeList = {{8200, false, "D00007.lck"}};
    EXPECT_EQ(ScanDirectory(&stuck, WaitForPossession, true), ENOTEMPTY);
    EXPECT_TRUE(stuck.doorwayStuck);
    const std::tuple<uint32_t, uint32_t, int> cases[] = {
        {0, 8401, EAGAIN}, {2500, 10901, EAGAIN}, {2500, 10900, ENOTEMPTY}, {UINT32_MAX, 90000, ENOTEMPTY}};
    for (const auto &[limit, slept, result] : cases) {
        FileLockAttempt attempt = Attempt();
        attempt.msecMaxWaitTime = limit;
        attempt.doorwayTime = slept;
        if (result != EAGAIN) {
            attempt.activeList = {{8000, false, "D00007.lck"}};  // two turns before it is found to be stuck
        }
        EXPECT_EQ(ScanDirectory(&attempt, WaitForPossession, true), result) << limit << " " << slept;
        EXPECT_EQ(attempt.activeList.size(), 1u);
    }
}

// The doorway is old enough to be cleared in the first turn; the members are judged in the next one.
TEST_F(FileLock, MembersAreJudgedOnlyBehindAnEmptyDoorway) {
    fs::create_directories(lockDir_ + "/D00007.lck");
    Put("E00007.lck", "");
    Put("M00007.lck", "");
    Put("M00001.lck", "otherMachine 1 5 X");
    FileLockAttempt attempt = Attempt();
    attempt.activeList = {{8200, false, "D00007.lck"}};
    const FileLockScanner judgeBehindDoorway = [](const FileLockValues &member, FileLockAttempt *judging) {
        EXPECT_FALSE(fs::exists(judging->directory.PathOf("D00007.lck")));
        judging->own.lamportNumber = member.lamportNumber;
        return 0;
    };
    GeneralLog log;
    EXPECT_EQ(ScanDirectory(&attempt, judgeBehindDoorway, true), 0);
    EXPECT_EQ(log.Take(), "FILE: Scanner discarding D00007.lck data from '" + lockDir_ + "'.\n");
    EXPECT_THAT(Names(), ElementsAre("M00001.lck"));
    EXPECT_EQ(attempt.own.lamportNumber, 5u);
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
        FileLockAttempt attempt = Attempt();
        attempt.own.machineID = FileLockGetMachineID();
        attempt.waitTime = 900;  // slept for members before this one
        attempt.msecMaxWaitTime = 1000;
        FileLockValues member = attempt.own;
        member.machineID = c.machineID;
        member.executionID = c.executionID;
        member.memberName = "M00001.lck";
        member.lamportNumber = 5;
        EXPECT_EQ(WaitForPossession(member, &attempt), 0) << c.found;
        EXPECT_EQ(attempt.waitTime, 1000u) << c.found;
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
