// The doctor finds what is broken, names it, and what it names as the cure cures it.
#include <gmock/gmock.h>

#include "tests/support/conversation.h"
#include "tests/support/dhcpServers.h"
#include "tests/support/editor.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;

const std::string PATH = "PATH=" HARBREL_BIN_DIR ":$PATH; ";

class Doctor : public EditorTest {
  protected:
    // zelan0 bridges eth0, zelan8 is behind NAT with a range of three addresses; all of it runs.
    void SetUp() override {
        outside_.ConnectToHost("eth0", "eth0", "203.0.113.9/24");
        Must("ip address add 203.0.113.1/24 dev eth0 && ip route add default via 203.0.113.9");
        Install(Nat8() + "answer VNET_8_DHCP_PARAM_LEASE_START_IP 10.7.8.130\n" +
                "answer VNET_8_DHCP_PARAM_LEASE_END_IP 10.7.8.132\nadd_bridge_mapping eth0 0\n");
        MustEdit("start");
    }
    // Without the cures and what may differ: what has no name before it is of zelan8.
    static std::string Findings(const std::string &options = "") {
        return RunShell(ProgramPath("harbrelctl") + " doctor " + options +
                        " | sed -E '/^    | well$/d; s/process [0-9]+/process N/; s/^zelan8: //'")
            .output;
    }

    Machine outside_{"outside"};
};

TEST_F(Doctor, FindsEachFaultAndNoneWhenItIsGone) {
    MustEdit("doctor");
    const std::string pid8 = "/var/run/zelan-natd-8.pid";
    const std::string lease =
        "e=$(($(date +%s)+900)); for i in 0 1 2; do echo \"$e 02:00:00:00:00:0$i 10.7.8.13$i * *\"; done > "
        "/etc/orvane/zelan8/dhcpd/dhcpd.leases";
    const struct {
        const char *finding;
        std::string spoil;
        const char *cure = "";  // where the doctor knows none; else what it says is done
    } faults[] = {
        {"nat does not run [service-stopped]", "kill -9 $(cat " + pid8 + ")"},
        {"process N of /var/run/zelan-natd-8.pid is " HARBREL_BIN_DIR "/system_tests [process-foreign]",
         "kill -9 $(cat " + pid8 + "); echo $PPID > " + pid8},
        {"/var/run/zelan-natd-8.pid has no process number [pid-file-garbled]",
         "kill -9 $(cat " + pid8 + "); echo rubbish > " + pid8},
        {"dhcp runs and is not configured [service-unwanted]", "harbrelctl --no-apply set zelan8 dhcp=off"},
        {"there is no /etc/orvane/zelan8/dhcpd/dhcpd.conf [file-missing]",
         "harbrelctl --no-apply set zelan8 dhcp=on"},
        {"/etc/orvane/zelan8/nat/nat.conf is not what the settings make: \"timeout = 61\" "
         "[file-differs]",
         "sed -i 's/timeout = 60/timeout = 61/' /etc/orvane/zelan8/nat/nat.conf"},
        {"zelan9: /etc/orvane/zelan9/dhcpd/dhcpd.leases.1790000000 is of a network that is not there "
         "[files-left]",
         "mkdir -p /etc/orvane/zelan9/dhcpd; touch /etc/orvane/zelan9/dhcpd/dhcpd.leases.1790000000"},
        {"there is no /dev/zelan8 [node-missing]", "rm /dev/zelan8"},
        {"/dev/zelan8 is no device of number 119,8 [node-wrong]", "rm /dev/zelan8; touch /dev/zelan8"},
        {"/dev/zelan8 is no device of number 119,8 [node-wrong]",
         "rm /dev/zelan8; mknod /dev/zelan8 c 119 9"},
        {"zelan-sw8 is down [switch-down]", "ip link set zelan-sw8 down"},
        {"the port p0 of zelan-sw8 is down [port-down]",
         "ip link add p0 type veth peer name p1 && ip link set p0 master zelan-sw8", "ip link del p0"},
        {"there is no interface zelan8 [interface-missing]",
         "ip link set zelan8 down && ip link set zelan8 name other"},
        {"zelan8 has not the address 10.7.8.1/24 [interface-address]",
         "ip address del 10.7.8.1/24 dev zelan8"},
        {"zelan8 is down [interface-down]", "ip link set zelan8 down"},
        {"the subnet 10.7.8.0/24 overlaps 10.7.8.0/25 of the interface lo [subnet-overlaps-host]",
         "ip address add 10.7.8.77/25 dev lo", "ip address del 10.7.8.77/25 dev lo"},
        {"table inet mine chain f: policy drop [firewall-drops]",
         "nft 'table inet mine { chain f { type filter hook forward priority 0; policy drop; }; }'",
         "nft delete table inet mine"},
        {"the host does not forward what comes in by eth0 [forwarding-off]",
         "echo 0 > /proc/sys/net/ipv4/conf/eth0/forwarding"},
        {"zelan0: eth0 is down [adapter-down]", "ip link set eth0 down"},
        {"zelan0: eth0 has no carrier: no cable, or a dead far end [adapter-no-carrier]",
         "ip -n outside link set eth0 down", "ip -n outside link set eth0 up"},
        {"all 3 addresses from 10.7.8.130 to 10.7.8.132 are leased [range-full]",
         "cp -p /etc/orvane/zelan8/dhcpd/dhcpd.leases /tmp/; " + lease,
         "cp -p /tmp/dhcpd.leases /etc/orvane/zelan8/dhcpd/"},
    };
    for (const auto &fault : faults) {
        Must(PATH + fault.spoil);
        EXPECT_TRUE(WaitUntil([&] { return Findings() == std::string(fault.finding) + "\n"; })) << Findings();
        Must(PATH + (*fault.cure != '\0'
                         ? fault.cure
                         : RunShell(ProgramPath("harbrelctl") + " doctor | tail -n 1").output));
        EXPECT_TRUE(WaitUntil([] { return Findings().empty(); })) << Findings();
    }
    // An exception for the networks of ours is no fault.
    Must(
        "nft 'table inet mine { chain f { type filter hook forward priority 0; policy drop; "
        "iifname \"zelan-up*\" accept; }; }'");
    EXPECT_EQ("", Findings());
    WriteFileText(DATABASE, "rubbish\n");
    EXPECT_THAT(Findings(), EndsWith(" tells how to mend it [database-unreadable]\n"));
}

using ServedDoctor = WithDhcpServer<Doctor>;
INSTANTIATE_TEST_SUITE_P(Dhcp, ServedDoctor, ServedDoctor::Both(), ServedDoctor::NameOf);

TEST_P(ServedDoctor, PacketsProveWhatFilesCannot) {
    EXPECT_TRUE(ItServes("zelan8"));
    WriteFileText("/etc/resolv.conf", "nameserver 203.0.113.9\n");
    Responder names(&outside_, SOCK_DGRAM, {"203.0.113.9", 53}, [](const std::string &request, auto &) {
        return request.substr(0, 2) + "\x81\x80" + request.substr(4);
    });
    const std::string before = RunShell("ip -o link | wc -l").output;
    EXPECT_EQ("", Findings("--deep"));
    EXPECT_THAT(RunShell(std::string(STRACE) + "-f -qq -o /run/trace -e inject=setgroups:error=EPERM " +
                         ProgramPath("harbrelctl") + " doctor --deep")
                    .output,
                HasSubstr("[probe-refused]"));
    kill(Pid("zelan-dhcpd-zelan8"), SIGSTOP);
    EXPECT_EQ("no DHCP server answers a DISCOVER on zelan-sw8 [dhcp-silent]\n", Findings("--deep"));
    EXPECT_EQ("", Findings()) << "found without a packet";
    kill(Pid("zelan-dhcpd-zelan8"), SIGCONT);
    kill(Pid("zelan-natd-8"), SIGSTOP);
    EXPECT_EQ("the gateway does not answer questions for names [dns-silent]\n", Findings("--deep"));
    kill(Pid("zelan-natd-8"), SIGCONT);
    WriteFileText("/etc/resolv.conf", "");
    EXPECT_TRUE(WaitUntil([] { return Findings("--deep").ends_with(" [dns-no-server]\n"); })) << Findings();
    WriteFileText("/etc/resolv.conf", "nameserver 203.0.113.9\n");
    EXPECT_TRUE(WaitUntil([] { return Findings("--deep").empty(); })) << Findings("--deep");
    Must("ip -n outside link set lo down; ip netns exec outside sysctl -qw net.ipv4.icmp_echo_ignore_all=1");
    EXPECT_EQ("no echo comes back from 203.0.113.9, the host's next hop [no-way-out]\n", Findings("--deep"));
    Must("ip netns exec outside sysctl -qw net.ipv4.icmp_echo_ignore_all=0");
    MustEdit("forward add zelan8 tcp 8888 10.7.8.9:80");
    EXPECT_EQ(
        "tcp port 8888 leads to 10.7.8.9:80, where nobody listens: Connection timed out "
        "[forward-dead]\n",
        Findings("--deep"));
    Machine guest("zelan-g");
    guest.ConnectToBridge("zelan-sw8", "eth0", "10.7.8.9/24");
    Responder server(&guest, SOCK_STREAM, {"10.7.8.9", 80}, [](auto &, auto &) { return "x"; });
    EXPECT_TRUE(WaitUntil([] { return Findings("--deep").empty(); })) << Findings("--deep");
    guest.Run("ip link del eth0");
    EXPECT_EQ(before, RunShell("ip -o link | wc -l").output) << "a port of the doctor is left";
}

}  // namespace
