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
    EXPECT_TRUE(WaitUntil([] { return PortCount("zelan-sw0") == 3; })) << RunShell("ip -d link show").output;
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

}  // namespace
