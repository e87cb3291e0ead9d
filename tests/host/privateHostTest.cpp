// The private host itself: what every other test of the host relies on.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/command.h"

TEST(PrivateHost, ExitStatusIsTheCommands) {
    static constexpr std::pair<const char *, int> CASES[] = {
        {"exit 0", 0}, {"exit 3", 3}, {"kill -9 $$", 137}, {"exit 77", 77}};
    for (const auto &[line, status] : CASES) {
        CommandResult result = RunCommand({ProgramPath("private-host"), "sh", "-c", line});
        EXPECT_EQ(status, result.status) << line << "\n" << result;
    }
    EXPECT_EQ(127, RunCommand({ProgramPath("private-host"), "/no/such/program"}).status);
}

TEST(PrivateHost, UnprivilegedCallerIsToldOfTheSkip) {
    CommandResult result = RunCommand({"setpriv", "--reuid", "65534", "--clear-groups", "--bounding-set",
                                       "-all", ProgramPath("private-host"), "true"});
    EXPECT_EQ(77, result.status) << result;
    EXPECT_NE(std::string::npos, result.errors.find("SKIPPED")) << result;
}
