// PID files, and status, stop and restart by them.
#include "lib/harbrel/services/daemons.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>

#include "lib/harbrel/base/services.h"
#include "tests/support/fakePrograms.h"
#include "tests/support/otherProcess.h"

namespace {

constexpr uint32_t VNET = 8;

class Daemons : public FakeProgramsTest {
  protected:
    void WritePid(const std::string &text) { WriteFileText(pidFile_, text); }
    bool HasPidFile() const { return access(pidFile_.c_str(), F_OK) == 0; }
    void ExpectErrorAndNoStop() {
        EXPECT_EQ(HBL_SERVICE_STATUS_ERROR, HBLServiceStatus(VNET, HBL_SVC_NAT));
        EXPECT_FALSE(HBLServiceStop(VNET, HBL_SVC_NAT));
        EXPECT_TRUE(HasPidFile());
    }

    const std::string pidFile_ = cache_.Path("run/zelan-natd-8.pid");
};

TEST_F(Daemons, FirstLineMustConvertAsAWholeAndBePositive) {
    static constexpr std::pair<const char *, int32_t> CASES[] = {
        {"4711\r\nmore\n", 4711},
        {"2147483647\n", INT32_MAX},
        {"2147483648\n", 0},
        {"4294967297\n", 0},
        {"0\n", 0},
        {"-5\n", 0},
        {"", 0},
        {"\n4711\n", 0},
        {"47x\n", 0},
    };
    for (const auto &[text, pid] : CASES) {
        SCOPED_TRACE(text);
        WritePid(text);
        bool openFailed = false;
        EXPECT_EQ(pid, HBLExtractPidFromFile(pidFile_.c_str(), &openFailed));
        EXPECT_FALSE(openFailed);
        if (pid == 0) {
            ExpectErrorAndNoStop();
        }
    }
    unlink(pidFile_.c_str());
    ASSERT_EQ(0, mkfifo(pidFile_.c_str(), 0600));
    ExpectErrorAndNoStop();
}

TEST_F(Daemons, WithoutPidFileOrProcessIsStoppedAndStopSucceeds) {
    EXPECT_EQ(HBL_SERVICE_STATUS_STOPPED, HBLServiceStatus(VNET, HBL_SVC_NAT));
    EXPECT_EQ("HBLExtractPidFromFile - Could not open the PID file: " + pidFile_ +
                  ", error: No such file or directory\nHBLServiceStatus - Could not extract PID of NAT\n",
              log_.Take());
    EXPECT_TRUE(HBLServiceStop(VNET, HBL_SVC_NAT));
    const pid_t ended = StartChild([] { return true; });
    ASSERT_TRUE(EndsWell(ended));
    const std::string pid = std::to_string(ended);
    WritePid(pid);
    log_.Take();
    EXPECT_EQ(HBL_SERVICE_STATUS_STOPPED, HBLServiceStatus(VNET, HBL_SVC_NAT));
    EXPECT_EQ("HBLServiceStatus - pid: " + pid + " for NAT service daemon on vnet: 8 is stale\n",
              log_.Take());
    EXPECT_TRUE(HasPidFile());
    EXPECT_TRUE(HBLServiceStop(VNET, HBL_SVC_NAT));
    EXPECT_FALSE(HasPidFile());
}

TEST_F(Daemons, ProcessThatIsNotOursToSignalIsAnError) {
    WritePid("1\n");
    std::filesystem::permissions(cache_.Path("."), std::filesystem::perms::all);
    const uid_t former = geteuid();
    EXPECT_TRUE(former != 0 || setresuid(65534, 65534, former) == 0);
    ExpectErrorAndNoStop();
    EXPECT_EQ(0, setresuid(former, former, former));
}

TEST_F(Daemons, RestartStartsWhatRanOrIsForcedAndIsConfigured) {
    static constexpr struct {
        const char *situation;
        bool configured, running, force, daemonWorks;
        bool result;
        std::optional<bool> restarted;  // nothing: the output stays untouched
    } CASES[] = {
        {"running, configured", true, true, false, true, true, true},
        {"running, no longer configured", false, true, false, true, true, false},
        {"stopped", true, false, false, true, true, {}},
        {"stopped, forced", true, false, true, true, true, true},
        {"stopped, forced, not configured", false, false, true, true, true, false},
        {"start fails", true, true, false, false, false, {}},
    };
    for (const auto &row : CASES) {
        SCOPED_TRACE(row.situation);
        cache_.Answer("VNET_8_NAT", row.configured ? "yes" : "no");
        cache_.Program("zelan-natd",
                       row.daemonWorks ? "echo $$ > $4; printf x > /proc/self/fd/$2" : "exit 0");
        unlink(pidFile_.c_str());
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

TEST_F(Daemons, RestartOfWhatCannotBeJudgedChangesNothing) {
    WritePid("no number\n");
    bool wasRunning = true;
    EXPECT_FALSE(HBLRestartService(VNET, HBL_SVC_NAT, &wasRunning, nullptr, true));
    EXPECT_TRUE(
        log_.Take().ends_with("HBLRestartService - Cannot determine status of service: 4 on vnet: 8\n"));
    EXPECT_FALSE(HBLRestartService(VNET, HBL_SVC_NETDETECT, &wasRunning, nullptr, true));
    EXPECT_EQ(HBL_SERVICE_STATUS_ERROR, HBLServiceStatus(VNET, 9));
    EXPECT_FALSE(HBLServiceStop(VNET, 9));
    EXPECT_EQ(
        "HBLRestartService - Unknown service: 5\nHBLGetPidFilename - Invalid service name: 9\n"
        "HBLGetPidFilename - Invalid service name: 9\n",
        log_.Take());
    EXPECT_TRUE(wasRunning && HasPidFile());
}

}  // namespace
