#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <sys/socket.h>

#include "lib/misc/owners.h"
#include "tests/support/conversation.h"
#include "tests/support/daemonStart.h"

namespace {

DaemonStart StartBridge(int network, std::vector<std::string> adapters = {}) {
    adapters.insert(adapters.begin(), {"-n", std::to_string(network)});
    return StartDaemon("zelan-bridge", "zelan-bridge-" + std::to_string(network), adapters);
}

// Whether the kernel says that somebody listens on the adapter to all frames.
bool IsBridged(const std::string &adapter) {
    return RunShell("ip -d link show " + adapter + " | grep -q 'promiscuity 1'").Succeeded();
}

int PortCount(const std::string &bridge) {
    return std::stoi(RunShell("ip -br link show master " + bridge + " | wc -l").output);
}

long ReceivedPackets(const Machine &machine, const std::string &link) {
    return std::stol(machine.Run("cat /sys/class/net/" + link + "/statistics/rx_packets").output);
}

// A machine outside on the other end of the host's adapter, and a guest on the switch.
struct BridgedPair {
    Machine outside{"outside"};
    Machine guest{"guest"};

    BridgedPair() {
        outside.ConnectToHost("eth1", "o0", "10.9.0.1/24");
        MustComeUp(StartBridge(0));
        guest.ConnectToBridge("zelan-sw0", "g0", "10.9.0.2/24");
    }
};

// Segments larger than the link's frames, whose checksums nobody has filled in, in both directions.
TEST(Bridge, BulkDataArrivesWholeAndTheAdapterStaysTheHosts) {
    BridgedPair pair;
    Must("ip address add 10.9.0.3/24 dev eth1");
    Must("ping -c 1 -W 5 10.9.0.1");
    Must("head -c 50000000 /dev/urandom > /tmp/data");
    for (const bool out : {true, false}) {
        const Machine &from = out ? pair.guest : pair.outside;
        const Machine &to = out ? pair.outside : pair.guest;
        BackgroundCommand receiver(to.Inside({"sh", "-c", "nc -l 7000 > /tmp/copy"}));
        ASSERT_TRUE(WaitUntil([&to] { return to.Run("ss -ltn | grep -q :7000").Succeeded(); }));
        CommandResult sender =
            from.Run(std::string("nc -N 10.9.0.") + (out ? "1" : "2") + " 7000 < /tmp/data");
        EXPECT_TRUE(sender.Succeeded()) << sender;
        EXPECT_EQ(0, receiver.Wait());
        EXPECT_TRUE(RunShell("cmp /tmp/data /tmp/copy").Succeeded()) << out;
    }
}

// A broadcast with a VLAN tag, of a protocol set aside for local experiments.
void ExpectTagArrives(const Machine &from, const std::string &out, const Machine &to, const std::string &in) {
    static constexpr unsigned char FRAME[64] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 2,    0,    0,
                                                0,    0,    1,    0x81, 0x00, 0,    0x05, 0x88, 0xb5};
    const CommandResult counter =
        to.Run("nft 'add table netdev t; add chain netdev t c { type filter hook ingress device " + in +
               " priority 0; }; add rule netdev t c vlan id 5 vlan type 0x88b5 counter'");
    ASSERT_TRUE(counter.Succeeded()) << counter;
    FileDescriptor handle = SocketOn(&from, SOCK_RAW, AF_PACKET);
    sockaddr_ll target = {};
    target.sll_family = AF_PACKET;
    target.sll_ifindex = std::stoi(from.Run("cat /sys/class/net/" + out + "/ifindex").output);
    ASSERT_EQ(
        static_cast<ssize_t>(sizeof FRAME),
        sendto(handle.get(), FRAME, sizeof FRAME, 0, reinterpret_cast<sockaddr *>(&target), sizeof target));
    EXPECT_TRUE(WaitUntil([&] {
        return to.Run("nft list ruleset | grep -q 'counter packets 1 '").Succeeded();
    })) << to.Run("nft list ruleset");
}

TEST(Bridge, VlanTagsSurviveTheCrossing) {
    BridgedPair pair;
    ExpectTagArrives(pair.outside, "o0", pair.guest, "g0");
    ExpectTagArrives(pair.guest, "g0", pair.outside, "o0");
}

// In a private host, as in any container, the host's own adapter is a veth whose other end is outside.
TEST(Bridge, DefaultNetworkTakesWhatLeadsOutAloneAndLeavesNothingWhenKilled) {
    Machine outside("outside");
    for (const char *name : {"eth1", "eth2", "eth3", "uplink", "ZELANx", "lan2", "docked"}) {
        outside.ConnectToHost(name, std::string("o-") + name);
    }
    Must("ip link add name br9 type bridge && ip link set uplink master br9");
    Must("ip link add name docker0 type bridge && ip link add name loose1 type veth peer name loose2");
    Must("ip link set loose2 master docker0 && ip tuntap add tap9 mode tap");
    Must("ip link add link eth2 name mac9 type macvlan");
    Must("ip link set lan2 group 1192");
    DaemonStart start = MustComeUp(StartBridge(0, {"-eeth2", "-eETH3"}));
    // A guest that is plugged in is none, and a bridge is one as soon as it gets a way out.
    Must("ip link set docked master zelan-sw0 && ip link add name br8 type bridge");
    Must("ip link set eth1 master br8");
    EXPECT_TRUE(WaitUntil([] { return IsBridged("br8"); })) << start;
    Must("ip link set eth1 nomaster");
    EXPECT_TRUE(WaitUntil([] { return IsBridged("eth1") && !IsBridged("br8"); })) << start;
    EXPECT_TRUE(IsBridged("br9"));
    EXPECT_EQ(3, PortCount("zelan-sw0")) << RunShell("ip -d link show").output;
    Must("ip link set docked nomaster && ip link set docked group 1190");
    KillDaemon(start);
    EXPECT_TRUE(WaitUntil([] { return NothingIsLeft() && !IsBridged("eth1"); })) << LeftOver();
}

TEST(Bridge, NamedAdaptersAloneAreTakenAndMayComeAndGo) {
    Must("ip link add name eth1 type veth peer name eth2");
    Must("ip link add name lan2 type veth peer name other && ip link set lan2 group 1192");
    DaemonStart start = MustComeUp(StartBridge(3, {"-ieth1", "-ieth3", "-ilan2"}));
    EXPECT_TRUE(IsBridged("eth1"));
    EXPECT_FALSE(IsBridged("lan2")) << "the host's own interface on a network";
    EXPECT_FALSE(IsBridged("eth2"));
    Must("ip link add name eth3 type veth peer name eth4");
    EXPECT_TRUE(WaitUntil([] { return IsBridged("eth3") && PortCount("zelan-sw3") == 2; })) << start;
    Must("ip link delete zelan-b3-0");
    EXPECT_TRUE(WaitUntil([] { return PortCount("zelan-sw3") == 2; })) << "a TAP is gone for good\n" << start;
    Must("ip link delete eth1");
    EXPECT_TRUE(WaitUntil([] { return PortCount("zelan-sw3") == 1; })) << start;
    Must("ip link set eth3 down && ip link set eth3 name eth5");
    EXPECT_TRUE(WaitUntil([] { return PortCount("zelan-sw3") == 0; })) << start;
}

TEST(Bridge, TwoAdaptersOnOneWireMakeNoLoop) {
    Machine wire("wire");
    wire.ConnectToHost("eth1", "w1");
    wire.ConnectToHost("eth2", "w2");
    ASSERT_TRUE(wire.Run("ip link add name lan type bridge && ip link set lan up && "
                         "ip link set w1 master lan && ip link set w2 master lan && "
                         "ip address add 10.9.0.1/24 dev lan")
                    .Succeeded());
    DaemonStart start = MustComeUp(StartBridge(0));
    Machine guest("guest");
    guest.ConnectToBridge("zelan-sw0", "g0", "10.9.0.2/24");
    long before = ReceivedPackets(guest, "g0");
    // Requests for an address that nobody has are broadcast.
    guest.Run("ping -c 3 -i 0.2 -W 1 10.9.0.77");
    CommandResult ping = guest.Run("ping -c 5 -i 0.2 -W 5 10.9.0.1");
    EXPECT_TRUE(ping.Succeeded()) << ping;
    EXPECT_EQ(std::string::npos, ping.output.find("DUP")) << ping;
    EXPECT_LT(ReceivedPackets(guest, "g0") - before, 100) << "frames go round";
}

}  // namespace
