// Starting daemons, with shell scripts in their place that note what they were given.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <regex>

#include "lib/harbrel/base/services.h"
#include "lib/harbrel/bridging/bridging.h"
#include "lib/harbrel/services/daemons.h"
#include "tests/support/fakePrograms.h"
#include "tests/support/otherProcess.h"

namespace {

constexpr const char *REPORT = "printf x > /proc/self/fd/$2\n";
// "-s <fd>" is checked and left out, and so is the test's directory wherever it stands.
constexpr const char *NOTE_AND_REPORT =
    "[ $1 = -s ] && [ $2 -gt 2 ] || exit 1\nend=$2; shift 2\n"
    "printf '%s' \"$0 $*\" | sed \"s|$DIR/||g\" > $DIR/noted; printf x > /proc/self/fd/$end\n";

class ServiceStart : public FakeProgramsTest {
  protected:
    std::string Noted(uint32_t vnet, uint32_t service) {
        EXPECT_TRUE(HBLServiceStart(vnet, service));
        return ReadFileText(cache_.Path("noted"));
    }
    void Bridge(const char *adapter, int32_t vnet) {
        EXPECT_TRUE(HBLNetCfgAddHostAdapterMapping(nullptr, adapter, vnet, false));
    }
};

TEST_F(ServiceStart, EachDaemonGetsItsVector) {
    static constexpr struct {
        uint32_t service, vnet;
        const char *program;
        const char *answerKey;  // changes the PID file's name and not the program
        const char *arguments;
    } CASES[] = {
        {HBL_SVC_BRIDGE, 2, "zelan-bridge", "BRIDGE_PROGRAM",
         "bin/zelan-bridge -d run/other-2.pid -n 2 -ieth1"},
        {HBL_SVC_NETIFUP, 1, "zelan-netifup", "NETIFUP_PROGRAM",
         "bin/zelan-netifup -d run/other-zelan1.pid /dev/zelan1 host1"},
        {HBL_SVC_DHCP, 8, "zelan-dhcpd", "DHCP_PROGRAM",
         "bin/zelan-dhcpd -cf conf/zelan8/dhcpd/dhcpd.conf -lf conf/zelan8/dhcpd/dhcpd.leases "
         "-pf run/other-zelan8.pid zelan8"},
        {HBL_SVC_NAT, 255, "zelan-natd", "NAT_PROGRAM",
         "bin/zelan-natd -d run/other-255.pid -m run/zelan-natd-255.mac -c conf/zelan255/nat/nat.conf"},
        {HBL_SVC_NETDETECT, 0, "zelan-detect", "NETDETECT_PROGRAM", "bin/zelan-detect -d run/other.pid"},
    };
    ASSERT_TRUE(HBLSetDefaultBridgeVnet(0));
    Bridge("eth1", 2);
    cache_.Answer("VNET_1_VIRTUAL_ADAPTER_NAME", "host1");
    for (const auto &row : CASES) {
        cache_.Program(row.program, NOTE_AND_REPORT);
        cache_.Answer(row.answerKey, "other");
        EXPECT_EQ(row.arguments, Noted(row.vnet, row.service));
    }
}

TEST_F(ServiceStart, VectorGrowsWithTheAdapters) {
    cache_.Program("zelan-bridge", "echo $# > $DIR/noted\n" + std::string(REPORT));
    ASSERT_TRUE(HBLSetDefaultBridgeVnet(0));
    // Behind the seven elements before the adapters two slots of 16 are free, one, none, and far less.
    for (int count = 0; count < 109; count++) {
        if (count == 7 || count == 8 || count == 9 || count == 108) {
            EXPECT_EQ(std::to_string(6 + count) + "\n", Noted(2, HBL_SVC_BRIDGE));
        }
        Bridge(std::string("x").append(std::to_string(count)).c_str(), 2);
    }
}

TEST_F(ServiceStart, SuccessIsAnyReportAndNothingElse) {
    static constexpr struct {
        const char *script;
        bool result;
        const char *end;  // of the log
    } CASES[] = {
        {"printf '\\002\\001' > /proc/self/fd/$2; exit 1", true, "Child process wrote status value: 258\n"},
        {REPORT, true, "Child process wrote status value: 120\n"},
        {"exit 0", false, "Daemon process did not report status, returning failure\n"},
        {"(sleep 0.1; printf x > /proc/self/fd/$2) &", true, "Child process wrote status value: 120\n"},
    };
    const std::string name = "HBLServiceStart - ";
    const std::string start =
        name + "Duping Fds status 1, 2\n" + name + "Child process started\n" + name +
        "Successfully forked off child process to start daemon: " + cache_.Path("bin/zelan-detect") +
        ", pid: #, waiting for child to complete\n" + name +
        "waitpid() reported pid: #, reported error: none\n" + name;
    HBLLogSetMask(LOG_ERR | LOG_WRN | LOG_INFO);
    for (const auto &row : CASES) {
        cache_.Program("zelan-detect", row.script);
        EXPECT_EQ(row.result, HBLServiceStart(0, HBL_SVC_NETDETECT)) << row.script;
        EXPECT_EQ(start + row.end, std::regex_replace(log_.Take(), std::regex("pid: [0-9]+"), "pid: #"));
    }
}

TEST_F(ServiceStart, FailedExecLeavesItsReasonInTheLogOnce) {
    HBLLogSetMask(LOG_ERR);
    HBLLog(LOG_ERR, nullptr, "written before");
    EXPECT_FALSE(HBLServiceStart(0, HBL_SVC_NETDETECT));
    EXPECT_EQ("written before\nHBLServiceStart - exec(): Error while starting daemon: " +
                  cache_.Path("bin/zelan-detect") + ", error: No such file or directory\n",
              log_.Take());
}

// The script looks at itself from a subshell: for a plain command the shell changes its own descriptors for a
// moment. The one on which it reads the script is left out.
TEST_F(ServiceStart, DaemonInheritsStandardDescriptorsAndTheWriteEndAlone) {
    cache_.Program("zelan-detect",
                   "(ls -l /proc/$$/fd > $DIR/fds)\n"
                   "sed -n \"\\|bin/zelan-|d; s/.* \\([0-9]*\\) -> \\([^:[]*\\).*/\\1 \\2/p\" $DIR/fds |"
                   " sed \"s/^$2 /W /\" > $DIR/noted\n" +
                       std::string(REPORT));
    const int stray = open("/dev/null", O_RDONLY);
    EXPECT_THAT(
        Noted(0, HBL_SVC_NETDETECT),
        testing::MatchesRegex("0 [^\n]*\n1 /tmp/logCapture[^\n]*\n2 /tmp/logCapture[^\n]*\nW pipe\n"));
    close(stray);
}

TEST_F(ServiceStart, WorksWithTheStandardDescriptorsClosed) {
    cache_.Program("zelan-detect", "echo output\n" + std::string(NOTE_AND_REPORT));
    EXPECT_TRUE(EndsWell(StartChild([] {
        for (int fd : {0, 1, 2}) {
            close(fd);
        }
        return HBLServiceStart(0, HBL_SVC_NETDETECT);
    })));
    EXPECT_EQ("output\n", log_.Take());
}

TEST_F(ServiceStart, FailsBeforeTheForkWithoutAVector) {
    EXPECT_FALSE(HBLServiceStart(0, 9));
    EXPECT_EQ("HBLServiceStart - Invalid service name 9\n", log_.Take());
    cache_.Answer(HBL_DEFAULT_BRIDGE_KEY, "1");
    HBLDefaultBridgeCopy() = HBL_DEFAULT_BRIDGE_UNREAD;
    EXPECT_FALSE(HBLServiceStart(2, HBL_SVC_BRIDGE));
    ASSERT_TRUE(HBLSetDefaultBridgeVnet(0));
    EXPECT_FALSE(HBLServiceStart(2, HBL_SVC_BRIDGE));
    EXPECT_EQ(
        "HBLGetDefaultBridgeVnet - Invalid value of defaultBridge in config\n"
        "HBLServiceStart - Cannot obtain value of DefaultBridge\n"
        "HBLServiceStart - Cannot obtain list of adapters bridged to vnet: 2\n",
        log_.Take());
}

}  // namespace
