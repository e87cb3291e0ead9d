// The general log as the product has it, with no destination, and with hooks.
#include "lib/log/log.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/generalLog.h"

TEST(Log, IsSilentWithoutAHookAndReadsNoArgument) {
    const char *const noText = reinterpret_cast<const char *>(1);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Log("%s\n", noText);
    Warning("%s\n", std::string(5000, 'w').c_str());
    EXPECT_EQ("", testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr());
}

TEST(Log, HookTakesThePlaceOfEachCallUntilItIsTakenAway) {
    {
        GeneralLog log;
        Log("%s %d\n", "first", 1);
        Warning("%s %d\n", "second", 2);
        EXPECT_EQ("first 1\nwarning: second 2\n", log.Take());
    }
    Log("%s\n", "to nobody");
    GeneralLog log;
    EXPECT_EQ("", log.Take());
}
