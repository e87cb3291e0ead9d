// What may pass between whom, as docs/isolation.md has it: each cell with a real packet, on hosts of every
// kind.
#include <unistd.h>

#include "tests/system/natNetwork.h"

namespace {

// The host's own interface on the host-only network; any name may be configured.
constexpr const char *HOSTONLY_LINK = "lan2";

// Machines, or - for the host, and the addresses that they try.
// What must not arrive, not even one way: between a host-only network and everybody else, into a NAT network
// and to its router, and past the NAT, by the host's interface on the network.
constexpr char CLOSED[] = R"(
zelan-o 203.0.113.9 198.51.100.9 172.17.0.11 192.168.10.50 100.127.252.34 203.0.113.60
outside 192.168.1.50 192.168.10.50 100.127.252.34
lan     192.168.1.50 192.168.10.50
box     192.168.1.50 192.168.10.50
zelan-g 192.168.1.50
zelan-b 192.168.1.50 192.168.10.50
zelan-n 192.168.10.50 100.127.252.34
zelan-s 203.0.113.9 192.168.1.50
)";

constexpr char OPEN[] = R"(
zelan-o 192.168.1.51 192.168.1.1
-       192.168.1.50 192.168.10.50
zelan-g 203.0.113.9 198.51.100.9 172.17.0.11 192.168.10.2 203.0.113.1 192.168.10.51 203.0.113.60
zelan-n 203.0.113.9
zelan-b 203.0.113.9
box     172.17.0.12
)";

// Between adapters of the host, which its own switch decides.
constexpr char BETWEEN_ADAPTERS[] = "outside 198.51.100.9";

// Tries all at once, since what is closed takes its time. A line for each of which that is so.
std::string Tried(const std::string &cells, const std::string &outcome) {
    return RunShell("echo '" + cells + "' | { while read -r from all; do for to in $all; do" +
                    " { [ \"$from\" = - ] || inside=\"ip netns exec $from\"; $inside ping -c 1 -W 1 $to" +
                    " >/dev/null 2>&1 " + outcome + " echo $from to $to; } & done; done; wait; }")
        .output;
}

std::string Answered(const std::string &cells) {
    return Tried(cells, "&&");
}

std::string Unanswered(const std::string &cells) {
    return Tried(cells, "||");
}

class Isolation : public NatNetwork {
  protected:
    void SetUp() override {
        NatNetwork::SetUp();
        lan_.ConnectToHost("eth1", "eth0", "198.51.100.9/24");
        Must("ip address add 198.51.100.1/24 dev eth1");
        ShowBridgedFrames("0");
        Must(
            "ip link add docker0 type bridge && ip address add 172.17.0.1/16 dev docker0"
            " && ip link set docker0 up");
        box_.ConnectToBridge("docker0", "eth0", "172.17.0.11/16");
        box2_.ConnectToBridge("docker0", "eth0", "172.17.0.12/16");
        for (const auto &[machine, host] :
             {std::pair{"outside", HOST}, {"lan", "198.51.100.1"}, {"box", "172.17.0.1"}}) {
            Must(std::string("ip -n ") + machine + " route add default via " + host);
        }
    }

    // Networks 1, host-only, 8, NAT with an interface of the host, and 9, NAT, with their guests.
    void StartNetworks() {
        Must("mknod /dev/zelan1 c 119 1");
        hostOnly_ =
            MustComeUp(StartDaemon("zelan-netifup", "zelan-netifup-zelan1", {"/dev/zelan1", HOSTONLY_LINK}));
        Must(std::string("ip address add 192.168.1.1/24 dev ") + HOSTONLY_LINK + " && ip link set " +
             HOSTONLY_LINK + " up");
        MustComeUp(StartNetifup(8));
        Must("ip address add 192.168.10.1/24 dev zelan8 && ip link set zelan8 up");
        Start(Configuration("", "", "8888 = 192.168.10.50:80\n"));
        MustComeUp(StartAnotherNat());
        MustComeUp(StartDaemon("zelan-bridge", "zelan-bridge-0", {"-n", "0", "-ieth0"}));
        bridged_.ConnectToBridge("zelan-sw0", "eth0", "203.0.113.60/24");
        Must(std::string("ip -n zelan-b route add default via ") + HOST);
        second_.ConnectToBridge("zelan-sw8", "eth0", "192.168.10.51/24");
        Must("ip -n zelan-s route add default via 192.168.10.1");
        other_.ConnectToBridge("zelan-sw1", "eth0", "192.168.1.50/24");
        Must("ip -n zelan-o route add default via 192.168.1.1");
        other2_.ConnectToBridge("zelan-sw1", "eth0", "192.168.1.51/24");
        ninth_.ConnectToBridge("zelan-sw9", "eth0", "192.168.11.50/24");
        Must("ip -n zelan-n route add default via 192.168.11.2");
    }

    void ExpectTable(const char *condition, bool hostForwards) {
        SCOPED_TRACE(condition);
        const std::string before = EchosReceived();
        EXPECT_EQ("", Answered(CLOSED));
        EXPECT_EQ(before, EchosReceived()) << "a packet got through one way";
        EXPECT_EQ(hostForwards, !Answered(BETWEEN_ADAPTERS).empty());
        EXPECT_EQ("", Unanswered(OPEN));
        Responder web(guest_.get(), SOCK_STREAM, {GUEST, 80}, Peer);
        for (const Machine *client : std::initializer_list<const Machine *>{&outside_, &ninth_, nullptr}) {
            EXPECT_NE("", Exchange(client, SOCK_STREAM, {HOST, 8888}, "x", SHORT)) << "no forward";
        }
        EXPECT_EQ("", Exchange(&outside_, SOCK_STREAM, {GUEST, 80}, "x", SHORT));
        EXPECT_EQ(OUTSIDE, Exchange(&outside_, SOCK_STREAM, {HOST, 8888}, "x"));
    }

    // To the host's firewall; without effect on a kernel that cannot.
    static void ShowBridgedFrames(const std::string &on) {
        RunShell("for name in iptables ip6tables arptables; do echo " + on +
                 " > /proc/sys/net/bridge/bridge-nf-call-$name; done");
    }

    Machine lan_{"lan"}, box_{"box"}, box2_{"box2"};
    Machine second_{"zelan-s"}, other_{"zelan-o"}, other2_{"zelan-o2"}, ninth_{"zelan-n"},
        bridged_{"zelan-b"};
    DaemonStart hostOnly_;

  private:
    static std::string EchosReceived() {
        return RunShell(
                   "for machine in zelan-g zelan-o outside lan box; do ip netns exec $machine"
                   " nstat -asz IcmpInEchos | awk '/InEchos/ {print $2}'; done")
            .output;
    }
};

constexpr const char *ALL_FORWARD = "echo 1 > /proc/sys/net/ipv4/ip_forward";

TEST_F(Isolation, HostThatDoesNotForward) {
    StartNetworks();
    ExpectTable("from the start", false);
    Must(
        "nft add table inet guests && nft add chain inet guests input"
        " '{ type filter hook input priority 0; policy accept; }'"
        " && nft add rule inet guests input ct state established,related accept"
        " && nft add rule inet guests input iifgroup '{ 1192, 1193 }' drop");
    EXPECT_EQ("", Answered("zelan-o 192.168.1.1\nzelan-g 203.0.113.1")) << "as the manual says";
    EXPECT_EQ("", Unanswered("- 192.168.1.50\nzelan-g 203.0.113.9"));
    Must(ALL_FORWARD);
    EXPECT_TRUE(WaitUntil([] { return !Answered(BETWEEN_ADAPTERS).empty(); }))
        << "somebody has told the host to forward";
    Must("nft delete table inet guests");
    EXPECT_TRUE(WaitUntil([] {
        return RunShell("nft list set inet zelan adapters").output.find("elements") == std::string::npos;
    }));
    ExpectTable("turned on later", true);
}

// A switch has no address, but the kernel would take in by it what is for any of the host's.
TEST_F(Isolation, HostHearsItsGuestsByTheirInterfaceAlone) {
    StartNetworks();
    const FileDescriptor host = SocketUnder(nullptr, SOCK_DGRAM, {"0.0.0.0", 7000});
    // A port of a bridge takes a moment to come up.
    EXPECT_TRUE(WaitUntil([] { return Unanswered("zelan-o 192.168.1.1").empty(); }));
    // Under the address of a machine that is elsewhere.
    other_.Run(std::string("ip address add ") + OUTSIDE + "/32 dev lo && printf forged | nc -u -q 0 -s " +
               OUTSIDE + " 192.168.1.1 7000");
    for (const char *word : {"one", "two", "three"}) {
        other_.Run(std::string("printf ") + word + " | nc -b -u -q 0 192.168.1.255 7000");
    }
    std::string heard;
    for (std::string word = "so"; !word.empty() && word != "three"; heard += word) {
        word = ReceiveOnce(host);
    }
    EXPECT_EQ("onetwothree", heard);
}

TEST_F(Isolation, HostThatForwards) {
    Must(ALL_FORWARD);
    StartNetworks();
    ExpectTable("from the start", true);
    // It outlives other networks' daemons.
    KillDaemon(start_);
    EXPECT_TRUE(WaitUntil([] { return !HasLink("zelan-up8"); }));
    EXPECT_EQ("", Answered("zelan-o 203.0.113.9\noutside 192.168.1.50"));
    EXPECT_EQ("", Unanswered("zelan-o 192.168.1.1"));
    KillDaemon(hostOnly_);
    EXPECT_TRUE(WaitUntil([] { return !HasLink(HOSTONLY_LINK); }));
    EXPECT_TRUE(RunShell("nft list table inet zelan").Succeeded()) << "there is another network";
    Must("echo 0 > /proc/sys/net/ipv4/ip_forward");
    EXPECT_TRUE(WaitUntil([] { return Unanswered("zelan-n 203.0.113.9").empty(); })) << "the way out is lost";
    EXPECT_EQ("", Answered(BETWEEN_ADAPTERS));
}

TEST_F(Isolation, HostThatShowsBridgedFramesToItsFirewall) {
    if (access("/proc/sys/net/bridge/bridge-nf-call-iptables", W_OK) != 0) {
        GTEST_SKIP() << "this kernel has no br_netfilter";
    }
    StartNetworks();
    ShowBridgedFrames("1");
    ExpectTable("bridge-nf-call-iptables", false);
}

TEST_F(Isolation, HostWithRulesOfItsOwn) {
    Must(ALL_FORWARD);
    Must(
        "nft 'table inet theirs {"
        " chain early { type filter hook forward priority -10; policy accept; accept; };"
        " chain late { type filter hook forward priority 10; policy accept; accept; };"
        " chain nat { type nat hook postrouting priority 90; policy accept;"
        " oifname \"eth0\" ip saddr 192.168.1.0/24 masquerade; }; }'");
    StartNetworks();
    ExpectTable("accepting rules of somebody else", true);
    Must("nft flush ruleset");
    EXPECT_TRUE(WaitUntil([] { return RunShell("nft list table inet zelan").Succeeded(); }));
    EXPECT_TRUE(WaitUntil([this] { return GuestPings(OUTSIDE); }));
    // What answers to a packet of before would be let in as an answer.
    EXPECT_EQ("", Answered(CLOSED));
    EXPECT_EQ("", Unanswered(OPEN));
    Must("nft flush chain inet zelan forward");
    EXPECT_TRUE(WaitUntil([] {
        return RunShell("nft list chain inet zelan forward").output.find("1193 drop") != std::string::npos;
    }));
    const std::string table = RunShell("nft -a list table inet zelan | grep ^table").output;
    EXPECT_EQ("", Answered(CLOSED));
    EXPECT_EQ(table, RunShell("nft -a list table inet zelan | grep ^table").output) << "put back without end";
}

}  // namespace
