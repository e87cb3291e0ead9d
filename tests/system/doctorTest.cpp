// The doctor finds what is broken, names it, and what it names as the cure cures it.
#include <gmock/gmock.h>

#include "tests/support/conversation.h"
#include "tests/support/dhcpServers.h"
#include "tests/support/editor.h"

namespace {

using testing::HasSubstr;
using testing::Not;

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
    static std::string Codes(const std::string &options = "") {
        return RunShell(ProgramPath("harbrelctl") + " -j doctor " + options +
                        " | sed -n 's/.*\"code\": \"\\(.*\\)\",/\\1/p'")
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
        const char *code;
        std::string spoil;
        const char *cure = "";  // where the doctor knows none; else what it says is done
    } faults[] = {
        {"service-stopped", "kill -9 $(cat " + pid8 + ")"},
        {"process-foreign", "kill -9 $(cat " + pid8 + "); echo $PPID > " + pid8},
        {"pid-file-garbled", "kill -9 $(cat " + pid8 + "); echo rubbish > " + pid8},
        {"service-unwanted", "harbrelctl --no-apply set zelan8 dhcp=off"},
        {"file-missing", "harbrelctl --no-apply set zelan8 dhcp=on"},
        {"file-differs", "sed -i 's/timeout = 60/timeout = 61/' /etc/orvane/zelan8/nat/nat.conf"},
        {"files-left",
         "mkdir -p /etc/orvane/zelan9/dhcpd; touch /etc/orvane/zelan9/dhcpd/dhcpd.leases.1790000000"},
        {"node-missing", "rm /dev/zelan8"},
        {"node-wrong", "rm /dev/zelan8; touch /dev/zelan8"},
        {"node-wrong", "rm /dev/zelan8; mknod /dev/zelan8 c 119 9"},
        {"switch-down", "ip link set zelan-sw8 down"},
        {"port-down", "ip link add p0 type veth peer name p1 && ip link set p0 master zelan-sw8",
         "ip link del p0"},
        {"interface-missing", "ip link set zelan8 down name other"},
        {"interface-address", "ip address del 10.7.8.1/24 dev zelan8"},
        {"interface-down", "ip link set zelan8 down"},
        {"subnet-overlaps-host", "ip address add 10.7.8.77/25 dev lo", "ip address del 10.7.8.77/25 dev lo"},
        {"firewall-drops",
         "nft 'table inet mine { chain f { type filter hook forward priority 0; policy drop; }; }'",
         "nft delete table inet mine"},
        {"forwarding-off", "echo 0 > /proc/sys/net/ipv4/conf/eth0/forwarding"},
        {"adapter-down", "ip link set eth0 down"},
        {"adapter-no-carrier", "ip -n outside link set eth0 down", "ip -n outside link set eth0 up"},
        {"range-full", "cp -p /etc/orvane/zelan8/dhcpd/dhcpd.leases /tmp/; " + lease,
         "cp -p /tmp/dhcpd.leases /etc/orvane/zelan8/dhcpd/"},
    };
    for (const auto &fault : faults) {
        Must(PATH + fault.spoil);
        EXPECT_TRUE(WaitUntil([&] { return Codes() == std::string(fault.code) + "\n"; }))
            << fault.spoil << "\n"
            << Edit("doctor");
        Must(PATH + (*fault.cure != '\0'
                         ? fault.cure
                         : RunShell(ProgramPath("harbrelctl") + " doctor | tail -n 1").output));
        EXPECT_TRUE(WaitUntil([] { return Codes().empty(); })) << fault.code << "\n" << Edit("doctor");
    }
    // An exception for the networks of ours is no fault.
    Must(
        "nft 'table inet mine { chain f { type filter hook forward priority 0; policy drop; "
        "iifname \"zelan-up*\" accept; }; }'");
    EXPECT_EQ("", Codes());
    WriteFileText(DATABASE, "rubbish\n");
    EXPECT_EQ("database-unreadable\n", Codes());
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
    EXPECT_EQ("", Codes("--deep"));
    EXPECT_THAT(RunShell(std::string(STRACE) + "-f -qq -o /run/trace -e inject=setgroups:error=EPERM " +
                         ProgramPath("harbrelctl") + " doctor --deep")
                    .output,
                HasSubstr("[probe-refused]"));
    kill(Pid("zelan-dhcpd-zelan8"), SIGSTOP);
    EXPECT_EQ("dhcp-silent\n", Codes("--deep"));
    EXPECT_EQ("", Codes()) << "found without a packet";
    kill(Pid("zelan-dhcpd-zelan8"), SIGCONT);
    kill(Pid("zelan-natd-8"), SIGSTOP);
    EXPECT_EQ("dns-silent\n", Codes("--deep"));
    kill(Pid("zelan-natd-8"), SIGCONT);
    WriteFileText("/etc/resolv.conf", "");
    EXPECT_TRUE(WaitUntil([] { return Codes("--deep") == "dns-no-server\n"; })) << Edit("doctor --deep");
    WriteFileText("/etc/resolv.conf", "nameserver 203.0.113.9\n");
    EXPECT_TRUE(WaitUntil([] { return Codes("--deep").empty(); })) << Edit("doctor --deep");
    Must("ip -n outside link set lo down; ip netns exec outside sysctl -qw net.ipv4.icmp_echo_ignore_all=1");
    EXPECT_EQ("no-way-out\n", Codes("--deep"));
    Must("ip netns exec outside sysctl -qw net.ipv4.icmp_echo_ignore_all=0");
    MustEdit("forward add zelan8 tcp 8888 10.7.8.9:80");
    EXPECT_EQ("forward-dead\n", Codes("--deep"));
    Machine guest("zelan-g");
    guest.ConnectToBridge("zelan-sw8", "eth0", "10.7.8.9/24");
    Responder server(&guest, SOCK_STREAM, {"10.7.8.9", 80}, [](auto &, auto &) { return "x"; });
    EXPECT_TRUE(WaitUntil([] { return Codes("--deep").empty(); })) << Edit("doctor --deep");
    guest.Run("ip link del eth0");
    EXPECT_EQ(before, RunShell("ip -o link | wc -l").output) << "a port of the doctor is left";
}

}  // namespace
