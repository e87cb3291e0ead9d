#include "lib/harbrel/services/daemons.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <optional>

#include "lib/harbrel/base/services.h"
#include "tests/support/command.h"
#include "tests/support/fakePrograms.h"
#include "tests/support/logCapture.h"

namespace {

constexpr uint32_t VNET = 8;

class Daemons : public testing::Test {
  protected:
    void WritePid(const std::string &text) { WriteFileText(PidFile(), text); }
    std::string PidFile() const { return cache_.Path("run/zelan-natd-8.pid"); }
    bool HasPidFile() const { return access(PidFile().c_str(), F_OK) == 0; }

    FakePrograms cache_;
    LogCapture quiet_;
};

pid_t EndedProcess() {
    const pid_t child = fork();
    if (child == 0) {
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    return child;
}

TEST_F(Daemons, WithoutPidFileIsStoppedAndStopSucceeds) {
    EXPECT_EQ(HBL_SERVICE_STATUS_STOPPED, HBLServiceStatus(VNET, HBL_SVC_NAT));
    EXPECT_TRUE(HBLServiceStop(VNET, HBL_SVC_NAT));
}

TEST_F(Daemons, GarbledPidFileIsAnErrorAndStays) {
    for (const char *text : {"0\n", "-5\n", "text\n", ""}) {
        WritePid(text);
        EXPECT_EQ(HBL_SERVICE_STATUS_ERROR, HBLServiceStatus(VNET, HBL_SVC_NAT)) << text;
        EXPECT_FALSE(HBLServiceStop(VNET, HBL_SVC_NAT)) << text;
        EXPECT_TRUE(HasPidFile()) << text;
    }
}

TEST_F(Daemons, StalePidIsStoppedAndTheFileGoesWithTheStop) {
    const std::string pid = std::to_string(EndedProcess());
    WritePid(pid);
    {
        LogCapture log;
        EXPECT_EQ(HBL_SERVICE_STATUS_STOPPED, HBLServiceStatus(VNET, HBL_SVC_NAT));
        EXPECT_EQ("HBLServiceStatus - pid: " + pid + " for NAT service daemon on vnet: 8 is stale\n",
                  log.Take());
    }
    EXPECT_TRUE(HasPidFile());
    EXPECT_TRUE(HBLServiceStop(VNET, HBL_SVC_NAT));
    EXPECT_FALSE(HasPidFile());
}

TEST_F(Daemons, RunningProcessIsKilledOutright) {
    BackgroundCommand daemon({"sh", "-c", "trap '' TERM; exec sleep 60"});
    WritePid(std::to_string(daemon.pid()) + "\n");
    EXPECT_EQ(HBL_SERVICE_STATUS_RUNNING, HBLServiceStatus(VNET, HBL_SVC_NAT));
    EXPECT_TRUE(HBLServiceStop(VNET, HBL_SVC_NAT));
    EXPECT_FALSE(HasPidFile());
    EXPECT_EQ(128 + SIGKILL, daemon.Wait());
}

TEST_F(Daemons, ProcessThatIsNotOursToSignalIsAnError) {
    WritePid("1\n");
    std::filesystem::permissions(cache_.Path("."), std::filesystem::perms::all);
    const pid_t child = fork();
    if (child == 0) {
        const bool dropped = geteuid() != 0 || setuid(65534) == 0;
        _exit(dropped && HBLServiceStatus(VNET, HBL_SVC_NAT) == HBL_SERVICE_STATUS_ERROR ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
}

struct RestartCase {
    const char *situation;
    bool configured;
    bool running;
    bool force;
    bool daemonWorks;
    bool result;
    std::optional<bool> restarted;  // nothing: the output stays untouched
};

TEST_F(Daemons, RestartStartsWhatRanOrIsForcedAndIsConfigured) {
    static constexpr RestartCase CASES[] = {
        {"running, configured", true, true, false, true, true, true},
        {"running, no longer configured", false, true, false, true, true, false},
        {"stopped", true, false, false, true, true, {}},
        {"stopped, forced", true, false, true, true, true, true},
        {"stopped, forced, not configured", false, false, true, true, true, false},
        {"start fails", true, true, false, false, false, {}},
    };
    for (const RestartCase &row : CASES) {
        SCOPED_TRACE(row.situation);
        cache_.Answer("VNET_8_NAT", row.configured ? "yes" : "no");
        cache_.Program("zelan-natd",
                       row.daemonWorks ? "echo $$ > $4; printf x > /proc/self/fd/$2" : "exit 0");
        unlink(PidFile().c_str());
        BackgroundCommand old({"sleep", "60"});
        if (row.running) {
            WritePid(std::to_string(old.pid()));
        }
        bool wasRunning = !row.running;
        bool restarted = !row.restarted.value_or(false);
        const bool before = restarted;
        EXPECT_EQ(row.result, HBLRestartService(VNET, HBL_SVC_NAT, &wasRunning, &restarted, row.force));
        EXPECT_EQ(row.running, wasRunning);
        EXPECT_EQ(row.restarted.value_or(before), restarted);
        EXPECT_EQ(row.restarted.value_or(false), HasPidFile());
    }
}

}  // namespace
