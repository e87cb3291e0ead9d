// --start, --status and --stop: what they say, and what the kernel and the files show afterwards.
#include <gmock/gmock.h>

#include <regex>
#include <set>
#include <sstream>

#include "tests/support/daemonStart.h"
#include "tests/support/dhcpServers.h"
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
std::multiset<std::string> Lines(const std::string &text) {
    std::istringstream stream(text);
    std::multiset<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.insert(line);
    }
    return lines;
}

class StartStop : public ToolTest {
  protected:
    static void ExpectInAnyOrder(const CommandResult &result, int status, const std::string &output,
                                 const std::string &errors) {
        EXPECT_EQ(status, result.status);
        EXPECT_EQ(Lines(output), Lines(result.output));
        EXPECT_EQ(Lines(errors), Lines(result.errors));
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

using ServedFullHost = WithDhcpServer<FullHost>;
INSTANTIATE_TEST_SUITE_P(Dhcp, ServedFullHost, ServedFullHost::Both(), ServedFullHost::NameOf);

TEST_P(ServedFullHost, StartStatusAndStopOfEverything) {
    std::string notRunning = std::regex_replace(RUNNING, std::regex("is running"), "is not running");
    notRunning = std::regex_replace(notRunning, std::regex("enabled"), "disabled");
    Expect(Run({"--status"}), 1, notRunning.substr(0, notRunning.find("All the")),
           "Some/All of the configured services are not running\n");
    ExpectInAnyOrder(Run({"--start"}), 0, STARTED, "");
    EXPECT_TRUE(ItServes("zelan1") && ItServes("zelan8"));
    Expect(Run({"--status"}), 0, RUNNING, "");
    EXPECT_EQ(
        "zelan-bridge-0.pid zelan-bridge-3.pid zelan-detect.pid zelan-dhcpd-zelan1.pid "
        "zelan-dhcpd-zelan8.pid zelan-natd-8.pid zelan-netifup-zelan1.pid zelan-netifup-zelan8.pid ",
        PidFiles());
    EXPECT_EQ("zelan0 zelan1 zelan2 zelan3 zelan8 ", Nodes());
    EXPECT_EQ("character special file 77,2 600\n", RunShell("stat -c '%F %t,%T %a' /dev/zelan2").output);
    EXPECT_EQ("10.7.1.1/24 brd 10.7.1.255\n", AddressOf("zelan1"));
    EXPECT_EQ("10.7.8.1/24 brd 10.7.8.255\n", AddressOf("zelan8"));
    EXPECT_TRUE(RunShell("ip -o link show zelan8 | grep -q '[<,]UP[,>]'").Succeeded());
    const std::string pids = RunShell("cat /var/run/zelan-[!d]*.pid").output;
    Must("kill -9 $(cat /var/run/zelan-dhcpd-*.pid)");  // what still runs shows whose subnet it is
    ExpectInAnyOrder(Run({"--start"}), 0, STARTED, "");
    EXPECT_EQ(pids, RunShell("cat /var/run/zelan-[!d]*.pid").output);

    // An interface that is down has its daemon all the same. The former interfaces and switches are still
    // being removed when the new ones are made.
    Must("ip link set zelan1 down");
    Machine guest("guest");
    guest.ConnectToBridge("zelan-sw8", "eth0", "10.7.8.9/24");
    Expect(Run({"--stop"}), 0, STOPPED, "");
    EXPECT_EQ("", PidFiles() + Nodes());
    ExpectInAnyOrder(Run({"--start"}), 0, STARTED, "");
    Expect(Run({"--status"}), 0, RUNNING, "");
    EXPECT_EQ("10.7.8.1/24 brd 10.7.8.255\n", AddressOf("zelan8"));
    EXPECT_TRUE(guest.Run("ping -q -c 1 -W 5 10.7.8.1").Succeeded()) << "a guest is to stay attached";
    guest.Run("ip link del eth0");

    // As by the kernel when memory runs out, or with the whole control group.
    Must("kill -9 $(ps -e -o pid=,comm= | awk '$2 ~ /^(zelan-|dhcpd|dnsmasq)/ {print $1}')");
    ASSERT_TRUE(WaitUntil([] { return RunShell("ps -e -o comm= | grep -E '^zelan-'").output.empty(); }));
    Expect(Run({"--stop"}), 0,
           "Disabled hostonly virtual adapter on zelan1\nDisabled hostonly virtual adapter on zelan8\n"
           "Stopped all configured services on all networks\n",
           "");
    EXPECT_TRUE(WaitUntil(NothingIsLeft)) << LeftOver();
    EXPECT_EQ("", Names("/run/zelan/daemon-* /var/run/zelan-*.pid"));
}

// Whatever fails, the rest of its network and of the host comes up. The stand-in for a netifup comes up
// without its interface, as if that had gone at once.
TEST_F(FullHost, FailuresOfOneStartAreToldOneByOneAndStopNothingElse) {
    WriteFileText(DATABASE, ReadFileText(DATABASE) + "answer VNET_5_VIRTUAL_ADAPTER_NAME sixteen-letters-\n");
    Replace("zelan-bridge", "case $4 in *-3.pid) exec " + ProgramPath("zelan-bridge") + " \"$@\"; esac\n");
    Replace("zelan-netifup", "case $4 in *8.pid) exec " + ProgramPath("zelan-netifup") +
                                 " \"$@\"; esac\nsetsid sleep 600 > /dev/null 2>&1 & echo $! > $4; "
                                 "printf x > /proc/self/fd/$2\n");
    Replace("zelan-dhcpd", "exit 0\n");
    Replace("zelan-natd", "exit 0\n");
    Replace("zelan-detect", "exit 0\n");
    Must("mkdir /dev/zelan2");
    ExpectInAnyOrder(
        Run({"--start"}), 1,
        "Started Bridge networking on zelan3\nEnabled hostonly virtual adapter on zelan8\n",
        std::string("Failed to determine features for network zelan5\n"
                    "Failed to start Bridged networking on zelan0\nFailed to start DHCP service on zelan1\n"
                    "Failed to enable hostonly virtual adapter on zelan1\n"
                    "Failed to start DHCP service on zelan8\nFailed to start NAT service on zelan8\n"
                    "Failed to start Network detection service\n") +
            SOME_NOT_STARTED);
    EXPECT_EQ("zelan-bridge-3.pid zelan-netifup-zelan8.pid ", PidFiles());
    EXPECT_THAT(Log(),
                HasSubstr("HBLServiceStart - Daemon process did not report status, returning failure\n"));
    EXPECT_THAT(Log(),
                HasSubstr("HBLVirtAdapterEnable - ioctl: SIOCSIFADDR failed, error: No such device\n"));
    Expect(Run({"--stop"}), 1,
           "Stopped Bridged networking on zelan3\nDisabled hostonly virtual adapter on zelan8\n",
           "Failed to delete device for zelan2\nFailed to determine features for network zelan5\n"
           "Failed to stop some/all services\n");
}

TEST_F(StartStop, ThreadThatCannotStartCostsItsNetworkAlone) {
    WriteDatabase(std::string(NO_DEFAULT_BRIDGE) + Subnet(1) + Feature(1, "VIRTUAL_ADAPTER") + Subnet(2) +
                  Feature(2, "VIRTUAL_ADAPTER"));
#if defined(__SANITIZE_THREAD__)
    const std::string first = "2 ";  // behind the sanitizer's own
#else
    const std::string first = "1 ";
#endif
    ExpectInAnyOrder(RunShell(std::string(STRACE) +
                              "-qq -o /run/trace -e trace=clone3 -e inject=clone3:error=EAGAIN:when=" +
                              first + ProgramPath("harbrelCLI") + " --start"),
                     1, "Enabled hostonly virtual adapter on zelan2\n" + std::string(STARTED_DETECTION),
                     "Failed to start some services on zelan1\n" + std::string(SOME_NOT_STARTED));
    EXPECT_EQ("zelan-detect.pid zelan-netifup-zelan2.pid ", PidFiles());
}

// Refused are the signals that would end the bridge of network 1 and the netifup of network 2; those before
// them look whether these run, and end the bridge of network 0.
TEST_F(StartStop, ServiceThatCannotBeStoppedIsToldAndTheRestGoesDown) {
    WriteDatabase("add_bridge_mapping eth7 1\n" + Subnet(2) + Feature(2, "VIRTUAL_ADAPTER"));
    ASSERT_TRUE(Run({"--start"}).Succeeded());
    Expect(RunShell(std::string(STRACE) +
                    "-qq -o /run/trace -e trace=kill -e inject=kill:error=EPERM:when=4..5 " +
                    ProgramPath("harbrelCLI") + " --stop"),
           1, "Stopped Bridged networking on zelan0\nStopped Network detection service\n",
           "Failed to stop Bridged networking on zelan1\nFailed to disable hostonly virtual adapter zelan2\n"
           "Failed to stop some/all services\n");
    EXPECT_EQ("zelan-bridge-1.pid zelan-netifup-zelan2.pid ", PidFiles());
    Expect(Run({"--stop"}), 0,
           "Stopped Bridged networking on zelan1\nDisabled hostonly virtual adapter on zelan2\n"
           "Stopped all configured services on all networks\n",
           "");
    EXPECT_EQ("", PidFiles());
}

TEST_F(StartStop, ClosedOutputDoesNotGoToTheDatabase) {
    WriteDatabase("");
    Replace("zelan-bridge", "readlink /proc/$PPID/fd/1 > /run/output\n");
    RunShell(ProgramPath("harbrelCLI") + " --start <&- >&-");
    EXPECT_EQ("/dev/null\n", ReadFileText("/run/output"));
}

TEST_F(StartStop, OnlyTheNetworkWhoseSubnetIsNotFreeStaysDown) {
    const std::string networks = std::string(NO_DEFAULT_BRIDGE) + "add_bridge_mapping eth7 1\n" + Subnet(1) +
                                 Feature(1, "VIRTUAL_ADAPTER") + Subnet(2) + Feature(2, "VIRTUAL_ADAPTER");
    // Networks 3 and 4 have no subnet that could be asked for. The bridge makes a node as well.
    WriteDatabase(networks + Feature(3, "DHCP") + Feature(4, "NAT"));
    Must("ip address add 10.7.1.1/32 dev lo");
    std::string steps;
    for (const auto &[slot, network, verdict] : {std::tuple("0", "zelan1", "not "),
                                                 {"1", "zelan2", ""},
                                                 {"2", "zelan3", "not "},
                                                 {"3", "zelan4", "not "}}) {
        steps += std::string("Creating thread #: ") + slot + " to ping subnet on " + network +
                 "\nChecking availability of subnet configured for " + network + "\nSubnet configured for " +
                 network + " is " + verdict + "available\nChecking if services on " + network +
                 " can be started, thread #" + slot + "\nFinished processing thread #" + slot + " on " +
                 network + "\n";
    }
    ExpectInAnyOrder(Run({"-v", "--start"}), 1,
                     "Commands specified: start \n"
                     "Features configured on zelan1 are: subnet   Bridge HostOnlyAdapter\n"
                     "Features configured on zelan2 are: subnet    HostOnlyAdapter\n"
                     "Features configured on zelan3 are:  DHCP   \n"
                     "Features configured on zelan4 are:   NAT  \n" +
                         steps +
                         "Started Bridge networking on zelan1\nEnabled hostonly virtual adapter on zelan2\n" +
                         STARTED_DETECTION,
                     Taken("zelan1") + Taken("zelan3") + Taken("zelan4") + SOME_NOT_STARTED);
    EXPECT_FALSE(HasLink("zelan1"));
    EXPECT_EQ("zelan0 zelan1 zelan2 ", Nodes());
    EXPECT_TRUE(Run({"--stop"}).Succeeded());
    // A later start is the repair.
    Must("ip address del 10.7.1.1/32 dev lo");
    WriteDatabase(networks);
    EXPECT_TRUE(Run({"--start"}).Succeeded());
    EXPECT_EQ("10.7.1.1/24 brd 10.7.1.255\n", AddressOf("zelan1"));
    // A check that cannot be made counts as a taken subnet.
    EXPECT_TRUE(Run({"--stop"}).Succeeded());
    Replace("orvane-ping", "exit 127\n");  // as if it were not there, without the shell's words
    ExpectInAnyOrder(Run({"--start"}), 1,
                     "Started Bridge networking on zelan1\n" + std::string(STARTED_DETECTION),
                     Taken("zelan1") + Taken("zelan2") + SOME_NOT_STARTED);
}

// No ping ends before all have begun, and before an interrupt has come.
TEST_F(StartStop, AllSubnetsAreAskedAtOnceAndAnInterruptChangesNothing) {
    std::string records = NO_DEFAULT_BRIDGE;
    for (int network = 0; network < 256; network++) {
        records += Subnet(network);
    }
    WriteDatabase(records);
    Replace(
        "orvane-ping",
        "echo >> /run/asked\n[ $(wc -l < /run/asked) -lt 256 ] || { kill -INT $(ps -o pid= -C harbrelCLI); "
        ": > /run/go; }\nuntil [ -e /run/go ]; do sleep 0.5; done\nexit 1\n");
    Expect(Run({"--start"}), 0, std::string(STARTED_DETECTION) + ALL_STARTED, "");
    EXPECT_EQ("256\n", RunShell("ls /dev | grep -c '^zelan'").output);
    EXPECT_TRUE(Run({"--stop"}).Succeeded());
    EXPECT_EQ("", Nodes());
}

TEST_F(StartStop, NeitherDetectionNorWhatIsNotConfiguredCountsTowardsTheStatus) {
    WriteDatabase(NO_DEFAULT_BRIDGE);
    BackgroundCommand bridge({"sleep", "600"});
    WriteFileText(PidFile("zelan-bridge-5"), std::to_string(bridge.pid()));
    Expect(Run({"-v", "--status"}), 0,
           "Commands specified: status \nRuntime features on zelan5 are:   Bridge \n"
           "Bridge networking on zelan5 is running\nNetwork detection service is not running\n"
           "All the services configured on all the networks are running\n",
           "");
    WriteFileText(PidFile("zelan-detect"), "zelan\n");
    Expect(Run({"--stop"}), 1, "Stopped Bridged networking on zelan5\n",
           "Failed to stop Network detection service\nFailed to stop some/all services\n");
    EXPECT_EQ("zelan-detect.pid ", PidFiles());
}

}  // namespace
