#include "lib/thread/vthread.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <barrier>
#include <cerrno>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "lib/config/msg.h"
#include "tests/support/generalLog.h"

namespace {

struct Seen {
    VThreadID id = VTHREAD_INVALID_ID;
    std::string name;
    std::string nameAtFirst;
    bool usr1Blocked = false;
    bool usr2Blocked = true;
};

void Look(void *data) {
    Seen *seen = static_cast<Seen *>(data);
    seen->nameAtFirst = VThread_CurName();
    seen->id = VThread_CurID();
    seen->name = VThread_CurName();
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    seen->usr1Blocked = sigismember(&mask, SIGUSR1) == 1;
    seen->usr2Blocked = sigismember(&mask, SIGUSR2) == 1;
}

Seen RunThread(const char *name) {
    Seen seen;
    const VThreadID id = VThread_CreateThread(Look, &seen, VTHREAD_INVALID_ID, name);
    VThread_WaitThread(id);
    EXPECT_EQ(seen.id, id);
    return seen;
}

// Ends the process with 0 when no expectation has failed. The table belongs to the process, so that what
// depends on its first use needs a process of its own.
[[noreturn]] void ExitWithVerdict() {
    _exit(testing::Test::HasFailure() ? 1 : 0);
}

[[noreturn]] void UseAFreshTable() {
    EXPECT_STREQ(VThread_CurName(), "unknown");
    VThread_Init(VTHREAD_INVALID_ID, "harbrelCLI");
    VThread_Init(5, "other");
    EXPECT_EQ(VThread_CurID(), VTHREAD_MAIN_ID);
    EXPECT_STREQ(VThread_CurName(), "harbrelCLI");

    const Seen first = RunThread(nullptr);
    EXPECT_EQ(first.id, 36);
    EXPECT_EQ(first.nameAtFirst, "vthread-36");
    EXPECT_EQ(RunThread(std::string(40, 'n').c_str()).name, std::string(31, 'n'));

    GeneralLog log;
    Seen foreign;
    std::thread(Look, &foreign).join();
    EXPECT_EQ(log.Take(), "XXX initialized unknown thread 38 vthread-38\n");
    EXPECT_EQ(foreign.nameAtFirst, "unknown");
    EXPECT_EQ(foreign.id, 38);
    EXPECT_EQ(foreign.name, "vthread-38");

    static std::vector<std::pair<VThreadID, int>> hookCalls;
    vthreadThreadHook = [](VThreadID id, int starting) { hookCalls.emplace_back(id, starting); };
    Seen fixed;
    EXPECT_EQ(VThread_CreateThread(Look, &fixed, 7, "seven"), 7);
    VThread_WaitThread(7);
    EXPECT_EQ(fixed.id, 7);
    EXPECT_THAT(hookCalls, testing::ElementsAre(std::pair(7, 1), std::pair(7, 0)));
    ExitWithVerdict();
}

TEST(VThreadDeathTest, IdsAndNamesOfAFreshProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(UseAFreshTable(), testing::ExitedWithCode(0), "");
}

// As many as there are networks, all alive at once: more than the table holds.
TEST(VThread, RunsAThreadForEachNetworkAtOnce) {
    constexpr int COUNT = 256;
    VThread_Init(VTHREAD_INVALID_ID, "unit");
    static std::barrier<> allRun(COUNT);
    std::vector<Seen> seen(COUNT);
    std::vector<VThreadID> created;
    for (int i = 0; i < COUNT; ++i) {
        const auto look = [](void *data) {
            Look(data);
            allRun.arrive_and_wait();
        };
        const std::string name = "ThreadForZelan" + std::to_string(i);
        created.push_back(VThread_CreateThread(look, &seen[i], VTHREAD_INVALID_ID, name.c_str()));
        ASSERT_GE(created.back(), 36);
    }
    for (int i = 0; i < COUNT; ++i) {
        VThread_WaitThread(created[i]);
        EXPECT_EQ(seen[i].id, created[i]);
        EXPECT_EQ(seen[i].name, "ThreadForZelan" + std::to_string(i));
    }
    EXPECT_EQ(std::set<VThreadID>(created.begin(), created.end()).size(), static_cast<size_t>(COUNT));
}

TEST(VThread, AThreadHasTheSignalMaskOfItsCreator) {
    VThread_Init(VTHREAD_INVALID_ID, "unit");
    sigset_t usr1;
    sigset_t old;
    sigset_t after;
    sigemptyset(&usr1);
    sigaddset(&usr1, SIGUSR1);
    pthread_sigmask(SIG_SETMASK, &usr1, &old);
    const Seen seen = RunThread("masked");
    pthread_sigmask(SIG_SETMASK, &old, &after);
    EXPECT_TRUE(seen.usr1Blocked);
    EXPECT_FALSE(seen.usr2Blocked);
    EXPECT_EQ(sigismember(&after, SIGUSR2), 0) << "the creator keeps its own mask";
}

[[noreturn]] void StartWithoutPermission() {
    VThread_Init(VTHREAD_INVALID_ID, "unit");
    rlimit limit;
    EXPECT_EQ(getrlimit(RLIMIT_NPROC, &limit), 0);
    const rlimit none = {0, limit.rlim_max};
    setrlimit(RLIMIT_NPROC, &none);
    if (geteuid() == 0) {
        EXPECT_EQ(setuid(65534), 0);  // root may always start threads
    }
    GeneralLog log;
    EXPECT_EQ(VThread_CreateThread(Look, nullptr, VTHREAD_INVALID_ID, "none"), -1);
    EXPECT_EQ(log.Take(), "") << "appended, not posted: nobody may be there to press a key";
    Msg_Reset(true);
    EXPECT_THAT(log.Take(), testing::HasSubstr(
                                std::string("[msg.vthreadPosix.createThreadFailed] Cannot start thread: ") +
                                strerror(EAGAIN) + "\n"));
    setrlimit(RLIMIT_NPROC, &limit);
    EXPECT_EQ(RunThread("next").id, 36) << "the id is free again";
    ExitWithVerdict();
}

TEST(VThreadDeathTest, AThreadThatCannotBeStartedIsReported) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(StartWithoutPermission(), testing::ExitedWithCode(0), "");
}

}  // namespace
