// --install-host-policy and --uninstall-host-policy, judged by what runs, the database and the files.
#include <gmock/gmock.h>

#include <regex>

#include "tests/support/dhcpServers.h"
#include "tests/support/tool.h"

namespace {

using testing::HasSubstr;

constexpr char POLICY_FILE[] = "/etc/orvane/orvane-lumet/host.qorp";
constexpr char COMPLETED[] = "Restarting services completed\n";
constexpr char CONFIGURED[] =
    "Configured host policy network settings on network zelan8, restarting services\n";
constexpr char STOPPED_8[] =
    "Stopped DHCP service on zelan8\nStopped NAT service on zelan8\n"
    "Disabled hostonly virtual adapter on zelan8\n";

class HostPolicy : public ToolTest {
  protected:
    HostPolicy() {
        Install("answer HBL_DEFAULT_BRIDGE_VNET -1\nadd_bridge_mapping eth7 8\n" + Subnet(8) +
                Feature(8, "DHCP") + Feature(8, "NAT") + Feature(8, "VIRTUAL_ADAPTER"));
    }
    static void Start() { ASSERT_TRUE(Run({"--start"}).Succeeded()); }
    static std::string DhcpFile() { return ReadFileText("/etc/orvane/zelan8/dhcpd/dhcpd.conf"); }
    // The settings of network 8 in the database, without the hash.
    static std::string Settings() {
        return RunShell(std::string("grep VNET_8 ") + DATABASE + " | grep -v HASH | cut -d_ -f3-").output;
    }
};

using ServedHostPolicy = WithDhcpServer<HostPolicy>;
INSTANTIATE_TEST_SUITE_P(Dhcp, ServedHostPolicy, ServedHostPolicy::Both(), ServedHostPolicy::NameOf);

TEST_P(ServedHostPolicy, InstallMovesTheRunningNatNetworkToTheSubnet) {
    Start();
    const pid_t bridge = Pid("zelan-bridge-8");
    const pid_t detection = Pid("zelan-detect");
    Expect(Run({"-v", "--install-host-policy=172.16.9.0,0x1"}), 0,
           std::string("Commands specified: install-hostpolicy \n") + STOPPED_8 +
               "Subnet configured for network zelan8\n" + CONFIGURED + COMPLETED,
           "");
    EXPECT_EQ("172.16.9.1/24 brd 172.16.9.255\n", AddressOf("zelan8"));
    EXPECT_THAT(DhcpFile(), HasSubstr("subnet 172.16.9.0 netmask 255.255.255.0"));
    EXPECT_THAT(ReadFileText("/etc/orvane/zelan8/nat/nat.conf"), HasSubstr("172.16.9.2"));
    EXPECT_TRUE(ItServes("zelan8") && Runs(Pid("zelan-natd-8")));
    EXPECT_EQ(bridge, Pid("zelan-bridge-8"));
    EXPECT_TRUE(Runs(bridge));
    EXPECT_NE(detection, Pid("zelan-detect"));
    EXPECT_TRUE(Runs(Pid("zelan-detect")));
    EXPECT_EQ(
        "DHCP yes\nHOSTONLY_NETMASK 255.255.255.0\nHOSTONLY_SUBNET 172.16.9.0\nNAT yes\nVIRTUAL_ADAPTER "
        "yes\n",
        Settings());
}

TEST_F(HostPolicy, InstallStartsWhatRanPastAFailureAndDhcpOnlyIfAsked) {
    Expect(Run({"--install-host-policy=172.16.9.0,1"}), 0, std::string(CONFIGURED) + COMPLETED, "");
    EXPECT_EQ("zelan-detect.pid ", PidFiles());
    EXPECT_THAT(Settings(), HasSubstr("DHCP yes\n"));
    for (const char *rest : {"dhcpd", "netifup"}) {  // that runs alone
        Start();
        Must("for p in dhcpd-zelan natd- netifup-zelan; do case $p in " + std::string(rest) +
             "*) ;; *) kill -9 $(cat /var/run/zelan-${p}8.pid); esac; done");
        EXPECT_TRUE(WaitUntil([&] { return HasLink("zelan8") == (*rest == 'n'); }));
        EXPECT_TRUE(Run({"--install-host-policy=172.16.9.0,1"}).Succeeded());
        EXPECT_TRUE(Runs(Pid("zelan-dhcpd-zelan8"))) << rest;
    }
    Start();
    Must("cd /run/programs && rm zelan-natd zelan-netifup");
    Expect(Run({"--install-host-policy=172.16.9.0,0"}), 1, std::string(STOPPED_8) + CONFIGURED,
           "Failed to enable hostonly virtual adapter on zelan8\nFailed to start NAT service on network "
           "zelan8\n");
    EXPECT_EQ("zelan-bridge-8.pid zelan-detect.pid ", PidFiles());
    EXPECT_EQ("", DhcpFile());
    EXPECT_THAT(Settings(), HasSubstr("DHCP no\n"));
}

TEST_F(HostPolicy, InstallWithoutASubnetRestartsDetectionOnly) {
    const std::string before = ReadFileText(DATABASE);
    Expect(Run({"-v", "--install-host-policy"}), 0,
           "Commands specified: install-hostpolicy \nSkipping NAT policy installation\n" +
               std::string(COMPLETED),
           "");
    EXPECT_EQ("zelan-detect.pid ", PidFiles());
    const pid_t detection = Pid("zelan-detect");
    // An argument that is refused is not applied by the option behind it.
    Expect(Run({"--install-host-policy=172.16.9.0,x", "--install-host-policy"}), 0, COMPLETED,
           "Invalid argument 172.16.9.0 specified for install-host-policy\n");
    EXPECT_TRUE(WaitUntil([detection] { return !Runs(detection); }));
    EXPECT_TRUE(Runs(Pid("zelan-detect")));
    EXPECT_EQ(before, ReadFileText(DATABASE));
    WriteFileText(PidFile("zelan-detect"), "no number\n");
    Expect(Run({"--install-host-policy"}), 1, "", "Failed to stop Netdetect service\n");
    EXPECT_TRUE(Runs(Pid("zelan-detect"))) << "started all the same";
    Replace("zelan-detect", "exit 0\n");
    Expect(Run({"--install-host-policy=10.7.8.0,1"}), 1, CONFIGURED, "Failed to start Netdetect service\n");
}

TEST_F(HostPolicy, InstallThatFailsStripsTheNetworkUnlessItCannotBeStopped) {
    const std::string before = ReadFileText(DATABASE);
    Must("mkdir /dev/zelan8");
    Expect(Run({"--install-host-policy=172.16.9.0,1"}), 1, "",
           "Failed to delete device for zelan8\nFailed to stop services for network zelan8\n");
    EXPECT_EQ(before, ReadFileText(DATABASE));
    Must("rmdir /dev/zelan8");
    Install(Subnet(8) + Feature(8, "DHCP") + Feature(8, "NAT") + Feature(8, "VIRTUAL_ADAPTER") +
            "answer VNET_8_NAT_PARAM_UDP_TIMEOUT 20\nanswer VNET_8_DHCP_PARAM_MAX_LEASE_TIME 7300\n"
            "answer VNET_8_VIRTUAL_ADAPTER_ADDR 10.7.8.9\nanswer VNET_8_VIRTUAL_ADAPTER_NAME lan8\n");
    Start();
    const pid_t detection = Pid("zelan-detect");
    Must("rm -r /etc/orvane/zelan8/nat && touch /etc/orvane/zelan8/nat");
    const std::string rolledBack =
        "Failed to configure all host policy network settings, cleanup up settigns on network zelan8 ...\n"
        "Cleaned-up subnet, Cleaned-up netmask, Cleaned-up dhcp, Cleaned-up nat, Cleaned-up hostonly "
        "adapter\n";
    Expect(Run({"--install-host-policy=172.16.9.0,1"}), 1, STOPPED_8,
           "Failed to create NAT configuration file for network zelan8\n" + rolledBack);
    EXPECT_EQ("DHCP no\nNAT no\nVIRTUAL_ADAPTER no\n", Settings());
    Expect(Run({"--install-host-policy=172.16.9.x,1"}), 1, "",
           "Failed to set the subnet address: 172.16.9.x for network zelan8\n" + rolledBack);
    EXPECT_EQ("zelan-bridge-0.pid zelan-detect.pid ", PidFiles());
    EXPECT_EQ(detection, Pid("zelan-detect"));
    EXPECT_TRUE(Runs(detection));
    // No file can grow beyond 512 bytes, which the database has already: no step of the roll-back succeeds.
    const std::string full =
        before + "answer VNET_8_NAT_PARAM_UDP_TIMEOUT 20\nanswer A " + std::string(600, 'x') + "\n";
    WriteFileText(DATABASE, full);
    Expect(RunShell("trap '' XFSZ; ulimit -f 1; " + ProgramPath("harbrelCLI") +
                    " --install-host-policy=172.16.9.0,1"),
           1, "",
           "Failed to set the subnet address: 172.16.9.0 for network zelan8\n" +
               std::regex_replace(rolledBack, std::regex("Cleaned-up"), "Failed to cleanup"));
    EXPECT_EQ(full, ReadFileText(DATABASE));
}

TEST_F(HostPolicy, UninstallDeletesTheFileAndRestartsDetection) {
    const std::string deleted = std::string("Deleted host policy file: ") + POLICY_FILE + "\n";
    const std::string done = deleted + "Uninstalled host policy network settings\n";
    const struct {
        const char *before;
        const char *location;  // how the line about it ends
        std::string output;
        const char *errors;
        const char *content;  // of the policy file afterwards
    } cases[] = {
        {"mkdir -p ${F%/*}; echo policy > $F", "exists", done, "", ""},
        {"rm -f $F", "does not exist", done, "", ""},
        {"rmdir ${F%/*}; touch ${F%/*}", "does not exist", done, "", ""},
        {"rm ${F%/*}; mkdir -p $F", "exists", "",
         "Failed to delete host policy file: /etc/orvane/orvane-lumet/host.qorp\n", ""},
        {"rmdir $F; rm $PROGRAM", "does not exist", deleted, "Failed to start Netdetect service\n", ""},
        {"echo policy > $F; echo no number > /var/run/zelan-detect.pid", "exists", "",
         "Failed to stop Netdetect service\n", "policy\n"},
    };
    const std::string database = ReadFileText(DATABASE);
    for (const auto &row : cases) {
        SCOPED_TRACE(row.before);
        Must(std::string("F=") + POLICY_FILE + " PROGRAM=" + Program("zelan-detect") + "; " + row.before);
        const pid_t detection = Pid("zelan-detect");
        const bool withdrawn = *row.errors == '\0';
        Expect(Run({"-v", "--uninstall-host-policy"}), withdrawn ? 0 : 1,
               std::string("Commands specified: uninstall-hostpolicy \nHost policy file location: ") +
                   POLICY_FILE + ", and " + row.location + "\n" + row.output,
               row.errors);
        EXPECT_TRUE(WaitUntil([detection] { return !Runs(detection); }));
        EXPECT_EQ(withdrawn, Runs(Pid("zelan-detect")));
        EXPECT_EQ(row.content, ReadFileText(POLICY_FILE));
        EXPECT_EQ(database, ReadFileText(DATABASE));
        EXPECT_THAT(Log(), testing::EndsWith("HBL_Unload - Harbrel unloaded.\n"));
    }
}

}  // namespace
