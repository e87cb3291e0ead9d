// The private host itself: what every other test of the host relies on.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <string>

#include "tests/support/command.h"

namespace {

TEST(PrivateHost, FoldersOfTheProductAreEmptyAndWritable) {
    for (const char *folder : {"/etc/orvane", "/var/log", "/var/run", "/tmp"}) {
        EXPECT_EQ("", RunCommand({"ls", "-A", folder}).output) << folder;
        EXPECT_EQ(0, access(folder, W_OK)) << folder;
    }
}

TEST(PrivateHost, DeviceNodeCanBeMade) {
    ASSERT_EQ(0, mknod("/dev/zelan8", S_IFCHR | 0600, makedev(119, 8)));
    EXPECT_TRUE(RunShell("echo text > /dev/null && head -c 1 /dev/zero").Succeeded());
}

TEST(PrivateHost, NetworkIsTheLoopbackAlone) {
    CommandResult links = RunShell("ip -br link | awk '{print $1}'");
    EXPECT_EQ("lo\n", links.output) << links;
    EXPECT_TRUE(RunShell("ip link show lo up | grep -q UP").Succeeded());
}

struct StatusCase {
    const char *line;
    int status;
};

TEST(PrivateHost, ExitStatusIsTheCommands) {
    static constexpr StatusCase CASES[] = {
        {"exit 0", 0}, {"exit 3", 3}, {"kill -9 $$", 137}, {"exit 77", 77}};
    for (const StatusCase &row : CASES) {
        CommandResult result = RunCommand({ProgramPath("private-host"), "sh", "-c", row.line});
        EXPECT_EQ(row.status, result.status) << row.line << "\n" << result;
    }
    EXPECT_EQ(127, RunCommand({ProgramPath("private-host"), "/no/such/program"}).status);
}

TEST(PrivateHost, EndsWithTheCommandAlthoughADaemonIsLeft) {
    CommandResult result =
        RunCommand({ProgramPath("private-host"), "sh", "-c", "setsid sleep 600 & test -d /proc/$!"});
    EXPECT_TRUE(result.Succeeded()) << result;
}

TEST(PrivateHost, UnprivilegedCallerIsToldOfTheSkip) {
    CommandResult result = RunCommand({"setpriv", "--reuid", "65534", "--clear-groups", "--bounding-set",
                                       "-all", ProgramPath("private-host"), "true"});
    EXPECT_EQ(77, result.status) << result;
    EXPECT_NE(std::string::npos, result.errors.find("SKIPPED")) << result;
}

}  // namespace
