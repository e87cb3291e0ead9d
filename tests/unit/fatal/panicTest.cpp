#include "lib/fatal/panic.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "lib/log/log.h"
#include "lib/misc/owners.h"

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

struct StopResult {
    std::string standardOutput;
    std::string standardError;
    int exitStatus;
};

std::string ReadAll(int fd) {
    std::string text;
    char piece[512];
    for (ssize_t n = read(fd, piece, sizeof piece); n > 0; n = read(fd, piece, sizeof piece)) {
        text.append(piece, static_cast<size_t>(n));
    }
    return text;
}

StopResult RunInChild(void (*stop)()) {
    int out[2];
    int err[2];
    EXPECT_EQ(pipe(out), 0);
    EXPECT_EQ(pipe(err), 0);
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        stop();
        _exit(99);
    }
    FileDescriptor outRead(out[0]);
    FileDescriptor errRead(err[0]);
    close(out[1]);
    close(err[1]);
    StopResult result{ReadAll(outRead.get()), ReadAll(errRead.get()), -1};
    int status = 0;
    waitpid(child, &status, 0);
    result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

std::vector<std::string> loggedLines;

void RecordLine(const char *format, va_list args) {
    char line[4096];
    vsnprintf(line, sizeof line, format, args);
    loggedLines.push_back(line);
}

class LoggedLines : public testing::Test {
  protected:
    void SetUp() override {
        loggedLines.clear();
        Log_SetLogHook(RecordLine);
    }
    void TearDown() override { Log_SetLogHook(nullptr); }
};

using Backtrace = LoggedLines;

}  // namespace

TEST(Panic, WritesToStandardOutputAloneAndExitsWithOne) {
    const struct {
        void (*stop)();
        const char *message;
    } cases[] = {
        {[] { Panic("%s broke %d times\n", "it", 3); }, "it broke 3 times\n"},
        {[] {
             atexit([] { puts("exit handler"); });
             Panic("stop\n");
         },
         "stop\nexit handler\n"},
        {[] {
             PanicNoMemory({"lib/a.cpp", 7});
         },
         "Unrecoverable memory allocation failure at lib/a.cpp:7\n"},
        {[] {
             PanicMemAlloc({"lib/a.cpp", 7});
         },
         "MEM_ALLOC lib/a.cpp:7\n"},
        {[] {
             PanicNotImplemented({"lib/a.cpp", 7});
         },
         "NOT_IMPLEMENTED lib/a.cpp:7\n"},
        {[] {
             PanicNotReached({"lib/a.cpp", 7});
         },
         "NOT_REACHED lib/a.cpp:7\n"},
        {[] {
             PanicInconsistent({"lib/a.cpp", 7});
         },
         "PANIC lib/a.cpp:7\n"},
        {[] {
             PanicAssert(4711, {"lib/a.cpp", 7});
         },
         "ASSERT lib/a.cpp:7 bugNr=4711\n"},
        {[] {
             PanicBufferTooSmall(255, {"lib/a.cpp", 7});
         },
         "lib/a.cpp:7 Buffer too small 0xff\n"},
    };
    for (const auto &c : cases) {
        const StopResult result = RunInChild(c.stop);
        EXPECT_EQ(result.standardOutput, std::string("Panic:\n") + c.message);
        EXPECT_EQ(result.standardError, "") << c.message;
        EXPECT_EQ(result.exitStatus, 1) << c.message;
    }
}

TEST(Panic, NamesTheCallersPlaceBelowTheRoot) {
    const StopResult result = RunInChild([] { PanicNotReached(); });
    EXPECT_THAT(result.standardOutput, MatchesRegex("Panic:\nNOT_REACHED tests/unit/fatal/[^/]*:[0-9]+\n"));
}

TEST_F(Backtrace, WalksTheStackTwiceBeginningAtTheCaller) {
    Util_Backtrace(815);
    ASSERT_GE(loggedLines.size(), 3u);
    EXPECT_EQ(loggedLines.front(), "Backtrace for bugNr=815\n");
    const size_t frames = (loggedLines.size() - 1) / 2;
    ASSERT_EQ(loggedLines.size(), 1 + 2 * frames);
    const std::string word = "[0-9a-f]{16}";
    for (size_t i = 0; i < frames; i++) {
        const std::string number = "\\[" + std::to_string(i) + "\\] ";
        EXPECT_THAT(loggedLines[1 + i],
                    testing::ContainsRegex("^Backtrace" + number + word + " rip=" + word + " rbx=" + word +
                                           " rbp=" + word + " r12=" + word + " r13=" + word));
        EXPECT_THAT(loggedLines[1 + frames + i],
                    testing::ContainsRegex("^SymBacktrace" + number + word + " rip=" + word + " "));
    }
}

TEST_F(Backtrace, LinesAreCutAt255Bytes) {
    Util_LogWrapper(nullptr, "%s", std::string(300, 'x').c_str());
    ASSERT_EQ(loggedLines.size(), 1u);
    EXPECT_EQ(loggedLines[0], std::string(254, 'x'));
}

TEST(Log, ReachesNoStreamAndNoFile) {
    const StopResult result = RunInChild([] {
        Log("line %d\n", 1);
        Warning("warning %d\n", 2);
        _exit(0);
    });
    EXPECT_EQ(result.standardOutput + result.standardError, "");
    EXPECT_EQ(result.exitStatus, 0);
}
