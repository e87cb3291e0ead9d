#include "lib/fatal/panic.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "lib/log/log.h"

namespace {

using testing::Eq;

// A death test reads descriptor 2, so the stream under test goes there and the other one nowhere.
void ShowOnly(int stream) {
    const int shown = dup(STDERR_FILENO);
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    dup2(shown, stream);
}

}  // namespace

TEST(PanicDeathTest, EveryStopHasItsOwnMessage) {
    const std::pair<void (*)(SourcePlace), const char *> cases[] = {
        {PanicNoMemory, "Unrecoverable memory allocation failure at lib/a.cpp:7\n"},
        {PanicMemAlloc, "MEM_ALLOC lib/a.cpp:7\n"},
        {PanicNotImplemented, "NOT_IMPLEMENTED lib/a.cpp:7\n"},
        {PanicNotReached, "NOT_REACHED lib/a.cpp:7\n"},
        {PanicInconsistent, "PANIC lib/a.cpp:7\n"},
        {[](SourcePlace place) { PanicAssert(4711, place); }, "ASSERT lib/a.cpp:7 bugNr=4711\n"},
        {[](SourcePlace place) { PanicBufferTooSmall(255, place); }, "lib/a.cpp:7 Buffer too small 0xff\n"},
    };
    for (const auto &[stop, message] : cases) {
        EXPECT_EXIT((ShowOnly(STDOUT_FILENO), stop({"lib/a.cpp", 7})), testing::ExitedWithCode(1),
                    Eq(std::string("Panic:\n") + message));
    }
    Log_SetLogHook([](const char *format, va_list args) { vprintf(format, args); });
    EXPECT_EXIT((ShowOnly(STDOUT_FILENO), PanicNotReached()), testing::ExitedWithCode(1),
                testing::MatchesRegex("Panic:\nNOT_REACHED tests/unit/fatal/[^/]*:[0-9]+\nBacktrace:\n"
                                      "Backtrace\\[0\\] [0-9a-f]{16} rip=.*\nSymBacktrace\\[0\\] .*"));
    Log_SetLogHook(nullptr);
}

TEST(PanicDeathTest, LeavesStandardErrorAloneAndRunsTheExitHandlers) {
    EXPECT_EXIT((ShowOnly(STDERR_FILENO), atexit([] { fputs("exit handler", stderr); }), Panic("stop\n")),
                testing::ExitedWithCode(1), Eq("exit handler"));
}
