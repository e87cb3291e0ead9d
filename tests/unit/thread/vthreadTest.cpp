#include "lib/thread/vthread.h"

#include <gmock/gmock.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <thread>

#include "lib/config/msg.h"
#include "tests/support/generalLog.h"

namespace {

// "<id>+" for a thread that has started, "<id>-" for one that has ended.
std::string hooked;

struct Seen {
    VThreadID id = VTHREAD_INVALID_ID;
    bool blocksHangup = false, blocksUser = false;
    std::string name, nameAtFirst;
};

void Look(void *data) {
    Seen *seen = static_cast<Seen *>(data);
    seen->nameAtFirst = VThread_CurName();
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    seen->blocksHangup = sigismember(&mask, SIGHUP) == 1;
    seen->blocksUser = sigismember(&mask, SIGUSR1) == 1;
    seen->id = VThread_CurID();
    seen->name = VThread_CurName();
}

Seen RunThread(const char *name) {
    Seen seen;
    const VThreadID id = VThread_CreateThread(Look, &seen, VTHREAD_INVALID_ID, name);
    VThread_WaitThread(id);
    EXPECT_EQ(seen.id, id);
    return seen;
}

// The table belongs to the process: what depends on its first use needs a process of its own.
[[noreturn]] void UseAFreshTable() {
    EXPECT_STREQ(VThread_CurName(), "unknown");
    VThread_Init(VTHREAD_INVALID_ID, "harbrelCLI");
    VThread_Init(5, "other");
    EXPECT_EQ(VThread_CurID(), VTHREAD_MAIN_ID);
    EXPECT_STREQ(VThread_CurName(), "harbrelCLI");

    sigset_t hangup;
    sigemptyset(&hangup);
    sigaddset(&hangup, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &hangup, nullptr);
    vthreadThreadHook = [](VThreadID id, int starting) {
        hooked += std::to_string(id) + (starting == 1 ? "+" : "-");
    };
    const Seen first = RunThread(nullptr);
    vthreadThreadHook = nullptr;
    EXPECT_EQ(hooked, "36+36-");
    EXPECT_TRUE(first.blocksHangup && !first.blocksUser) << "as its creator";
    EXPECT_EQ(first.id, 36);
    EXPECT_EQ(first.nameAtFirst, "vthread-36");
    EXPECT_EQ(RunThread(std::string(40, 'n').c_str()).name, std::string(31, 'n'));

    GeneralLog log;
    Seen foreign;
    std::thread(Look, &foreign).join();
    EXPECT_EQ(log.Take(), "warning: XXX initialized unknown thread 38 vthread-38\n");
    EXPECT_EQ(foreign.nameAtFirst, "unknown");
    EXPECT_EQ(foreign.id, 38);
    EXPECT_EQ(foreign.name, "vthread-38");

    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, size_t{1} << 47);  // as large as the address space
    pthread_setattr_default_np(&attributes);
    EXPECT_EQ(VThread_CreateThread(Look, nullptr, VTHREAD_INVALID_ID, nullptr), VTHREAD_INVALID_ID);
    EXPECT_EQ(log.Take(), "") << "appended, not posted: nobody may be there to press a key";
    Msg_Reset(true);
    EXPECT_THAT(log.Take(), testing::HasSubstr("[msg.vthreadPosix.createThreadFailed] Cannot start thread: " +
                                               std::string(strerror(EAGAIN)) + "\n"));
    pthread_attr_setstacksize(&attributes, size_t{1} << 20);
    pthread_setattr_default_np(&attributes);
    EXPECT_EQ(RunThread(nullptr).name, "vthread-39") << "the id is free again";
    pthread_attr_setstacksize(&attributes, size_t{1} << 47);
    pthread_setattr_default_np(&attributes);
    for (int i = 0; i < 2; ++i) {  // a named id as well
        EXPECT_EQ(VThread_CreateThread(Look, nullptr, 7, nullptr), VTHREAD_INVALID_ID);
    }
    _exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST(VThreadDeathTest, IdsAndNamesOfAFreshProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(UseAFreshTable(), testing::ExitedWithCode(0), "");
}

}  // namespace
