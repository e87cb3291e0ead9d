// --start, --status and --stop: what they say, and what the kernel and the files show afterwards.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <sstream>

#include "lib/misc/owners.h"
#include "tests/support/tool.h"

namespace {

using testing::HasSubstr;

constexpr char STARTED_DETECTION[] = "Started Network detection service\n";
constexpr char ALL_STARTED[] = "Started all configured services on all networks\n";
constexpr char SOME_NOT_STARTED[] = "Failed to start some/all services\n";
// Without this the default bridge is on network 0.
constexpr char NO_DEFAULT_BRIDGE[] = "answer HBL_DEFAULT_BRIDGE_VNET -1\n";

std::string Taken(const std::string &network) {
    return "Subnet on " + network +
           " is no longer available for usage, please run the network editor to reconfigure different "
           "subnet\n";
}

// Networks start as their verdicts come in, so that their order among each other is open.
std::vector<std::string> SortedLines(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

class StartStop : public ToolTest {
  protected:
    static void ExpectNothingLeft() {
        EXPECT_EQ("", PidFiles());
        EXPECT_EQ("", Nodes());
        EXPECT_TRUE(WaitUntil([] { return RunShell("ip -br link | grep '^zelan'").output.empty(); },
                              std::chrono::seconds(30)))
            << RunShell("ip -br link").output;
        EXPECT_EQ("", RunShell("ps -e -o comm= | grep -E '^(zelan-|dhcpd)' | grep -v zelan-watch").output);
    }
};

// Two bridges, a host-only network, a subnet of its own and a NAT network.
class FullHost : public StartStop {
  protected:
    FullHost() {
        Install("add_bridge_mapping eth7 3\n" + Subnet(1) + Feature(1, "DHCP") +
                Feature(1, "VIRTUAL_ADAPTER") + Subnet(2) + Subnet(8) + Feature(8, "DHCP") +
                Feature(8, "NAT") + Feature(8, "VIRTUAL_ADAPTER"));
    }

    static constexpr char STARTED[] =
        "Started Bridge networking on zelan0\nStarted Bridge networking on zelan3\n"
        "Started DHCP service on zelan1\nEnabled hostonly virtual adapter on zelan1\n"
        "Started DHCP service on zelan8\nStarted NAT service on zelan8\n"
        "Enabled hostonly virtual adapter on zelan8\n"
        "Started Network detection service\nStarted all configured services on all networks\n";
    static constexpr char RUNNING[] =
        "Bridge networking on zelan0 is running\nDHCP service on zelan1 is running\n"
        "Hostonly virtual adapter on zelan1 is enabled\nBridge networking on zelan3 is running\n"
        "DHCP service on zelan8 is running\nNAT service on zelan8 is running\n"
        "Hostonly virtual adapter on zelan8 is enabled\nNetwork detection service is running\n"
        "All the services configured on all the networks are running\n";
    static constexpr char STOPPED[] =
        "Stopped Bridged networking on zelan0\nStopped DHCP service on zelan1\n"
        "Disabled hostonly virtual adapter on zelan1\nStopped Bridged networking on zelan3\n"
        "Stopped DHCP service on zelan8\nStopped NAT service on zelan8\n"
        "Disabled hostonly virtual adapter on zelan8\nStopped Network detection service\n"
        "Stopped all configured services on all networks\n";
};

TEST_F(FullHost, StartStatusAndStopOfEverything) {
    const std::string notRunning =
        RunShell("echo '" + std::string(RUNNING) +
                 "' | sed '/^All/,$d; s/is running/is not running/; s/enabled/disabled/'")
            .output;
    Expect(Run({"--status"}), 1, notRunning, "Some/All of the configured services are not running\n");
    const CommandResult start = Run({"--start"});
    EXPECT_EQ(0, start.status) << start;
    EXPECT_EQ(SortedLines(STARTED), SortedLines(start.output));
    EXPECT_EQ("", start.errors);

    Expect(Run({"--status"}), 0, RUNNING, "");
    EXPECT_EQ(
        "zelan-bridge-0.pid zelan-bridge-3.pid zelan-detect.pid zelan-dhcpd-zelan1.pid "
        "zelan-dhcpd-zelan8.pid zelan-natd-8.pid zelan-netifup-zelan1.pid zelan-netifup-zelan8.pid ",
        PidFiles());
    EXPECT_EQ("zelan0 zelan1 zelan2 zelan3 zelan8 ", Nodes());
    EXPECT_EQ("character special file 77,2 600\n", RunShell("stat -c '%F %t,%T %a' /dev/zelan2").output);
    EXPECT_EQ("10.7.1.1/24 brd 10.7.1.255\n", Address("zelan1"));
    EXPECT_EQ("10.7.8.1/24 brd 10.7.8.255\n", Address("zelan8"));
    EXPECT_TRUE(RunShell("ip -o link show zelan8 | grep -q '[<,]UP[,>]'").Succeeded());

    Expect(Run({"--stop"}), 0, STOPPED, "");
    ExpectNothingLeft();
    Expect(Run({"--stop"}), 0, "Stopped all configured services on all networks\n", "");
}

TEST_F(FullHost, SecondStartTouchesNothingAndRestartWaitsForNothing) {
    ASSERT_TRUE(Run({"--start"}).Succeeded());
    const std::string pids = RunShell("cat /var/run/*.pid").output;
    const CommandResult again = Run({"--start"});
    EXPECT_EQ(0, again.status) << again;
    EXPECT_EQ(SortedLines(STARTED), SortedLines(again.output));
    EXPECT_EQ(pids, RunShell("cat /var/run/*.pid").output);

    // An interface that is down has its daemon all the same. The former interfaces and switches are still
    // being removed when the new ones are made.
    Must("ip link set zelan1 down");
    Expect(Run({"--stop"}), 0, STOPPED, "");
    const CommandResult restart = Run({"--start"});
    EXPECT_EQ(0, restart.status) << restart;
    EXPECT_EQ("10.7.8.1/24 brd 10.7.8.255\n", Address("zelan8"));
    Expect(Run({"--status"}), 0, RUNNING, "");
}

TEST_F(FullHost, DaemonsInheritTheIgnoredInterrupt) {
    ASSERT_TRUE(Run({"--start"}).Succeeded());
    // ISC dhcpd sets a handler of its own.
    for (const char *daemon : {"zelan-bridge-0", "zelan-netifup-zelan1", "zelan-natd-8", "zelan-detect"}) {
        const std::string ignored =
            RunShell("sed -n 's/^SigIgn:\t*//p' /proc/" + std::to_string(Pid(daemon)) + "/status").output;
        EXPECT_NE(0u, strtoull(ignored.c_str(), nullptr, 16) & (1u << (SIGINT - 1))) << daemon << ignored;
    }
}

TEST_F(StartStop, DaemonThatDoesNotComeUpFailsItsServiceOnly) {
    struct BrokenProgram {
        const char *how;  // to the file $P
        const char *reason;
    };
    static constexpr BrokenProgram CASES[] = {
        {"printf '#!/bin/sh\\nexit 0\\n' > $P; chmod 755 $P",
         "HBLServiceStart - Daemon process did not report status, returning failure\n"},
        {"echo data > $P; chmod 644 $P",
         "HBLServiceStart - exec(): Error while starting daemon: /run/programs/zelan-bridge, error: "
         "Permission denied\n"},
        {"echo data > $P; chmod 755 $P", "zelan-bridge, error: Exec format error\n"},
        {"mkdir $P", "zelan-bridge, error: Permission denied\n"},
        {":", "zelan-bridge, error: No such file or directory\n"},
    };
    WriteDatabase("");
    for (const BrokenProgram &row : CASES) {
        SCOPED_TRACE(row.how);
        Must("P=" + Program("zelan-bridge") + "; rm -rf $P; " + row.how);
        WriteFileText("/var/log/harbrel", "");
        Expect(Run({"--start"}), 1, STARTED_DETECTION,
               std::string("Failed to start Bridged networking on zelan0\n") + SOME_NOT_STARTED);
        EXPECT_THAT(Log(), HasSubstr(row.reason));
        EXPECT_EQ("zelan-detect.pid ", PidFiles());
    }
}

TEST_F(StartStop, PidFileDecidesWhatRuns) {
    WriteDatabase("");
    BackgroundCommand stranger({"sleep", "600"});
    WriteFileText(PidFile("zelan-bridge-0"), std::to_string(stranger.pid()) + "\n");
    Expect(Run({"--start"}), 0,
           std::string("Started Bridge networking on zelan0\n") + STARTED_DETECTION + ALL_STARTED, "");
    EXPECT_EQ(stranger.pid(), Pid("zelan-bridge-0"));
    EXPECT_TRUE(Run({"--stop"}).Succeeded());
    EXPECT_EQ(128 + SIGKILL, stranger.Wait());
    EXPECT_EQ("", PidFiles());

    for (const char *useless : {"zelan\n", "0\n", "-5\n", "", "4194304\n"}) {
        SCOPED_TRACE(useless);
        WriteFileText(PidFile("zelan-bridge-0"), useless);
        EXPECT_EQ(1, Run({"--status"}).status);
        EXPECT_TRUE(Run({"--stop"}).Succeeded());
        EXPECT_EQ(useless, ReadFileText(PidFile("zelan-bridge-0")));
        EXPECT_TRUE(Run({"--start"}).Succeeded());
        EXPECT_TRUE(Runs(Pid("zelan-bridge-0")));
        EXPECT_TRUE(Run({"--stop"}).Succeeded());
    }
    WriteFileText(PidFile("zelan-detect"), "zelan\n");
    Expect(Run({"--stop"}), 1, "",
           "Failed to stop Network detection service\nFailed to stop some/all services\n");
    EXPECT_EQ("zelan-detect.pid ", PidFiles());
}

TEST_F(StartStop, OnlyTheNetworkWhoseSubnetIsNotFreeStaysDown) {
    struct SubnetCase {
        const char *why;
        const char *trouble;
        const char *output;
        std::string errors;
        const char *nodes;
    };
    // Network 3 says DHCP, but has no subnet that could be asked for. The bridge makes a node as well.
    const SubnetCase cases[] = {
        {"answers", "ip address add 10.7.1.1/32 dev lo",
         "Started Bridge networking on zelan1\nEnabled hostonly virtual adapter on zelan2\n",
         Taken("zelan1") + Taken("zelan3"), "zelan0 zelan1 zelan2 "},
        {"no program to ask with", "rm /run/programs/orvane-ping", "Started Bridge networking on zelan1\n",
         Taken("zelan1") + Taken("zelan2") + Taken("zelan3"), "zelan0 zelan1 "},
    };
    const std::string networks = std::string(NO_DEFAULT_BRIDGE) + "add_bridge_mapping eth7 1\n" + Subnet(1) +
                                 Feature(1, "VIRTUAL_ADAPTER") + Subnet(2) + Feature(2, "VIRTUAL_ADAPTER");
    for (const SubnetCase &row : cases) {
        SCOPED_TRACE(row.why);
        WriteDatabase(networks + Feature(3, "DHCP"));
        Must(row.trouble);
        const CommandResult start = Run({"--start"});
        EXPECT_EQ(1, start.status);
        EXPECT_EQ(SortedLines(std::string(row.output) + STARTED_DETECTION), SortedLines(start.output));
        std::vector<std::string> errors = SortedLines(start.errors);
        std::erase_if(errors, [](const std::string &line) { return line.find("not found") != line.npos; });
        EXPECT_EQ(SortedLines(row.errors + SOME_NOT_STARTED), errors) << start.errors;
        EXPECT_FALSE(HasLink("zelan1"));
        EXPECT_EQ(row.nodes, Nodes());
        EXPECT_TRUE(Run({"--stop"}).Succeeded());
    }
    // A later start is the repair.
    Must("ip address del 10.7.1.1/32 dev lo");
    Replace("orvane-ping", "exit 1\n");
    WriteDatabase(networks);
    EXPECT_TRUE(Run({"--start"}).Succeeded());
    EXPECT_EQ("10.7.1.1/24 brd 10.7.1.255\n", Address("zelan1"));
}

// The stand-ins make it happen at one moment: DHCP, which starts first, takes the interface away.
TEST_F(StartStop, InterfaceThatVanishesDuringTheSweepIsReported) {
    Replace("zelan-dhcpd", std::string("ip link delete zelan1 2> /dev/null\n") + FAKE_DAEMON);
    Replace("zelan-netifup", "ip link add zelan1 type veth\n" + std::string(FAKE_DAEMON));
    Install(NO_DEFAULT_BRIDGE + Subnet(1) + Feature(1, "DHCP") + Feature(1, "VIRTUAL_ADAPTER"));
    ASSERT_TRUE(Run({"--start"}).Succeeded());
    const pid_t netifup = Pid("zelan-netifup-zelan1");
    Must("kill -9 $(cat " + PidFile("zelan-dhcpd-zelan1") + ")");
    EXPECT_TRUE(WaitUntil([] { return !Runs(Pid("zelan-dhcpd-zelan1")); }));
    Expect(Run({"--start"}), 1, std::string("Started DHCP service on zelan1\n") + STARTED_DETECTION,
           std::string("Failed to enable hostonly virtual adapter on zelan1\n") + SOME_NOT_STARTED);
    EXPECT_THAT(Log(),
                HasSubstr("HBLVirtAdapterEnable - ioctl: SIOCSIFADDR failed, error: No such device\n"));
    EXPECT_TRUE(Runs(netifup)) << "it was there before";
}

TEST_F(StartStop, InterfaceThatWasDeletedIsMadeAnewByTheNextStart) {
    WriteDatabase(Subnet(1) + Feature(1, "VIRTUAL_ADAPTER"));
    ASSERT_TRUE(Run({"--start"}).Succeeded());
    const pid_t netifup = Pid("zelan-netifup-zelan1");
    Must("ip link delete zelan1");
    EXPECT_TRUE(WaitUntil([netifup] { return !Runs(netifup); })) << "it keeps nothing in being any more";
    EXPECT_TRUE(Run({"--start"}).Succeeded());
    EXPECT_EQ("10.7.1.1/24 brd 10.7.1.255\n", Address("zelan1"));
}

// No ping ends before all have begun, and before an interrupt has come.
TEST_F(StartStop, AllSubnetsAreAskedAtOnceAndAnInterruptChangesNothing) {
    constexpr int NETWORKS = 256;
    std::string records = NO_DEFAULT_BRIDGE;
    for (int network = 0; network < NETWORKS; network++) {
        records += Subnet(network);
    }
    WriteDatabase(records);
    Must("mkdir /run/asked && mkfifo /run/gate");
    Replace("orvane-ping", ": > /run/asked/$$\nread line < /run/gate\nexit 1\n");
    BackgroundCommand start(Command({"--start"}), "/run/output");
    EXPECT_TRUE(WaitUntil(
        [] {
            const std::filesystem::directory_iterator asked("/run/asked");
            return std::distance(begin(asked), end(asked)) == NETWORKS;
        },
        std::chrono::seconds(60)));
    EXPECT_EQ(0, kill(start.pid(), SIGINT));
    {
        const FileDescriptor gate(open("/run/gate", O_RDWR | O_CLOEXEC));
        const std::string lines(NETWORKS, '\n');
        EXPECT_EQ(NETWORKS, write(gate.get(), lines.data(), lines.size()));
        EXPECT_EQ(0, start.Wait(std::chrono::seconds(60)));
    }
    EXPECT_EQ(std::string(STARTED_DETECTION) + ALL_STARTED, ReadFileText("/run/output"));
    EXPECT_EQ("256\n", RunShell("ls /dev | grep -c '^zelan'").output);
    EXPECT_TRUE(Run({"--stop"}).Succeeded());
    EXPECT_EQ("", Nodes());
}

TEST_F(StartStop, DetectionDaemonAloneDoesNotCountTowardsTheStatus) {
    WriteDatabase(NO_DEFAULT_BRIDGE);
    Expect(Run({"--status"}), 0,
           "Network detection service is not running\n"
           "All the services configured on all the networks are running\n",
           "");
    Must("mkdir /dev/zelan9 && rm /run/programs/zelan-detect");
    Expect(Run({"--start"}), 1, "",
           std::string("Failed to start Network detection service\n") + SOME_NOT_STARTED);
    Expect(Run({"--stop"}), 1, "", "Failed to delete device for zelan9\nFailed to stop some/all services\n");
}

}  // namespace
