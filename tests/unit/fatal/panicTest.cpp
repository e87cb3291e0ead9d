#include "lib/fatal/panic.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "lib/log/log.h"
#include "tests/support/generalLog.h"

namespace {

using testing::ContainsRegex;
using testing::Eq;
using testing::MatchesRegex;

// A death test reads descriptor 2, so the stream under test goes there and the other one nowhere.
void ShowOnly(int stream) {
    const int shown = dup(STDERR_FILENO);
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    dup2(shown, stream);
}

[[noreturn]] void WriteToBothLogs() {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    Log("line %d\n", 1);
    Warning("warning %d\n", 2);
    _exit(0);
}

[[gnu::noinline]] unsigned long TraceInAFrameOfItsOwn() {
    Util_Backtrace(815);
    return reinterpret_cast<unsigned long>(__builtin_return_address(0));
}

}  // namespace

TEST(PanicDeathTest, EveryStopHasItsOwnMessage) {
    const struct {
        void (*stop)(SourcePlace place);
        const char *message;
    } cases[] = {
        {PanicNoMemory, "Unrecoverable memory allocation failure at lib/a.cpp:7\n"},
        {PanicMemAlloc, "MEM_ALLOC lib/a.cpp:7\n"},
        {PanicNotImplemented, "NOT_IMPLEMENTED lib/a.cpp:7\n"},
        {PanicNotReached, "NOT_REACHED lib/a.cpp:7\n"},
        {PanicInconsistent, "PANIC lib/a.cpp:7\n"},
        {[](SourcePlace place) { PanicAssert(4711, place); }, "ASSERT lib/a.cpp:7 bugNr=4711\n"},
        {[](SourcePlace place) { PanicBufferTooSmall(255, place); }, "lib/a.cpp:7 Buffer too small 0xff\n"},
    };
    for (const auto &c : cases) {
        EXPECT_EXIT((ShowOnly(STDOUT_FILENO), c.stop({"lib/a.cpp", 7})), testing::ExitedWithCode(1),
                    Eq(std::string("Panic:\n") + c.message));
    }
}

TEST(PanicDeathTest, LeavesStandardErrorAloneAndRunsTheExitHandlers) {
    EXPECT_EXIT((ShowOnly(STDERR_FILENO), atexit([] { fputs("exit handler", stderr); }), Panic("stop\n")),
                testing::ExitedWithCode(1), Eq("exit handler"));
}

TEST(PanicDeathTest, NamesTheCallersPlaceBelowTheRoot) {
    EXPECT_EXIT((ShowOnly(STDOUT_FILENO), PanicNotReached()), testing::ExitedWithCode(1),
                MatchesRegex("Panic:\nNOT_REACHED tests/unit/fatal/[^/]*:[0-9]+\n"));
}

TEST(LogDeathTest, ReachesNoStream) {
    EXPECT_EXIT(WriteToBothLogs(), testing::ExitedWithCode(0), Eq(""));
}

TEST(Backtrace, WalksTheStackTwiceBeginningAtTheCaller) {
    GeneralLog log;
    const unsigned long whereCallerGoesOn = TraceInAFrameOfItsOwn();
    const std::string text = log.Take();
    const std::string word = "[0-9a-f]{16}";
    std::string registers;
    for (const char *name : {"rbx", "rbp", "r12", "r13", "r14", "r15"}) {
        registers += std::string(" ") + name + "=" + word;
    }
    char secondRip[32];
    snprintf(secondRip, sizeof secondRip, " rip=%016lx", whereCallerGoesOn);
    EXPECT_THAT(text, ContainsRegex("^Backtrace for bugNr=815\nBacktrace\\[0\\] " + word + " rip=" + word +
                                    registers + "\nBacktrace\\[1\\] " + word + secondRip + registers + "\n"));
    EXPECT_THAT(text, ContainsRegex("\nSymBacktrace\\[0\\] " + word + " rip=" + word + " "));
    EXPECT_THAT(text, ContainsRegex("SymBacktrace\\[1\\] " + word + secondRip + " "));
}

TEST(Backtrace, LinesAreCutAt255Bytes) {
    GeneralLog log;
    Util_LogWrapper(nullptr, "%s", std::string(300, 'x').c_str());
    EXPECT_EQ(log.Take(), std::string(254, 'x'));
}
