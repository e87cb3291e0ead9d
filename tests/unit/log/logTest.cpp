#include "lib/log/log.h"

#include <gtest/gtest.h>

#include <string>

TEST(Log, IsSilentWithoutAHookAndReadsNoArgument) {
    const char *const noText = reinterpret_cast<const char *>(1);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Log("%s\n", noText);
    Warning("%s\n", std::string(5000, 'w').c_str());
    EXPECT_EQ("", testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr());
}
