#include <gtest/gtest.h>

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

// In a private host, as in any container, the host's own adapter is a veth whose other end is outside.
TEST(Bridge, TakesWhatLeadsOutOrIsNamedAndMayComeAndGo) {
    Machine outside("outside");
    for (const char *name : {"eth1", "eth2", "eth3", "uplink", "lan2", "docked"}) {
        outside.ConnectToHost(name, std::string("o-") + name);
    }
    Must("ip link add name br9 type bridge && ip link set uplink master br9 && ip link set lan2 group 1192");
    // What keeps an adapter away once does not for ever, though nothing announces that.
    Must("mount --bind /dev/null /dev/net/tun");
    const DaemonStart start = MustComeUp(StartBridge(0, {"-eeth2", "-eETH3", "-eeth4"}));
    EXPECT_TRUE(start.Log().find("cannot make a TAP for eth1: ") != std::string::npos) << start;
    Must("umount /dev/net/tun && nft list table inet zelan");
    EXPECT_TRUE(WaitUntil([] { return IsBridged("eth1"); })) << start;
    const DaemonStart named = MustComeUp(StartBridge(3, {"-ieth2", "-ieth4", "-ilan2"}));
    EXPECT_TRUE(IsBridged("eth2"));
    EXPECT_FALSE(IsBridged("eth3") || IsBridged("lan2")) << "the host's own interface on a network";
    // A guest that is plugged in is none, and a bridge is one as soon as it gets a way out.
    Must("ip link set docked master zelan-sw0 && ip link add name br8 type bridge");
    Must("ip link set eth1 master br8");
    EXPECT_TRUE(WaitUntil([] { return IsBridged("br8"); })) << start;
    Must("ip link set eth1 nomaster");
    EXPECT_TRUE(WaitUntil([] { return IsBridged("eth1") && IsBridged("br9") && !IsBridged("br8"); }))
        << start;
    EXPECT_TRUE(WaitUntil([] { return PortCount("zelan-sw0") == 3; })) << RunShell("ip -d link show").output;
    const auto hasPorts = [](int count) {
        return WaitUntil([count] { return PortCount("zelan-sw3") == count; });
    };
    outside.ConnectToHost("eth4", "o-eth4");
    EXPECT_TRUE(WaitUntil([] { return IsBridged("eth4"); }) && hasPorts(2)) << named;
    Must("ip link delete zelan-b3-0");
    EXPECT_TRUE(hasPorts(2)) << "a TAP is gone for good\n" << named;
    Must("ip link delete eth2");
    EXPECT_TRUE(hasPorts(1)) << named;
    Must("ip link set eth4 down && ip link set eth4 name eth5");
    EXPECT_TRUE(hasPorts(0)) << named;
    // By number, connected or no longer; the name that the last one leaves under is a matter of time.
    EXPECT_EQ("2c4c2n2c2n4n", RunShell("sed -nE 's/.* - eth(.) is ([cn]).* network 3/\\1\\2/p' " +
                                       named.logFile + " | tr 5 4 | tr -d '\\n'")
                                  .output);
    Must("ip link set docked nomaster && ip link set docked group 1190");
    KillDaemon(start);
    KillDaemon(named);
    EXPECT_TRUE(WaitUntil([] { return NothingIsLeft() && !IsBridged("eth1"); })) << LeftOver();
}

}  // namespace
