#include <gtest/gtest.h>
#include <signal.h>

#include "tests/support/daemonStart.h"
#include "tests/support/frames.h"

namespace {

TEST(Netifup, InterfaceCarriesFramesOnASwitchThatOutlivesItWhileAGuestIsAttached) {
    DaemonStart start = MustComeUp(StartNetifup(8));
    EXPECT_TRUE(RunShell("ip -br link show zelan8 | grep -q DOWN").Succeeded())
        << "left to the tool to bring up";
    {
        Machine guest("guest");
        guest.ConnectToBridge("zelan-sw8", "g0", "192.168.8.5/24");
        KillDaemon(start);
        ASSERT_TRUE(WaitUntil([] { return !HasLink("zelan8"); })) << LeftOver();
        EXPECT_TRUE(HasLink("zelan-sw8"));
        start = MustComeUp(StartNetifup(8));
        Must("ip address add 192.168.8.1/24 dev zelan8 && ip link set zelan8 up");
        CommandResult ping = guest.Run("ping -c 1 -W 5 192.168.8.1");
        EXPECT_TRUE(ping.Succeeded()) << ping;
        CommandResult addresses = RunShell("ip -br address show zelan-sw8; ip -br address show zelan-if8");
        EXPECT_EQ(std::string::npos, addresses.output.find("fe80")) << "the switch is an endpoint\n"
                                                                    << addresses;
        KillDaemon(start);
        ASSERT_TRUE(WaitUntil([] { return !HasLink("zelan8"); })) << LeftOver();
    }
    EXPECT_TRUE(WaitUntil(NothingIsLeft)) << LeftOver();
}

// An interface of our own beside one of anybody else, which shows that the advertisement is a good one.
TEST(Netifup, GuestsAdvertisementDoesNotMakeItTheHostsRouter) {
    const auto routes = [](const std::string &link) {
        return RunShell("ip -6 route show dev " + link +
                        " | grep -E 'default|2001:db8:1'; ip -6 address show " + link + " | grep 2001:db8:1")
            .output;
    };
    MustComeUp(StartNetifup(8));
    Must("ip address add 192.168.8.1/24 dev zelan8 && ip link set zelan8 up");
    Machine guest("guest");
    guest.ConnectToHost("other", "o0");
    guest.ConnectToBridge("zelan-sw8", "g0", "192.168.8.5/24");
    SendFrame(&guest, "o0", RouterAdvertisement());
    EXPECT_TRUE(WaitUntil([&] { return !routes("other").empty(); })) << "not taken by a foreign interface";
    for (const char *ipv6 : {"1", "0"}) {
        Must("echo " + std::string(ipv6) + " > /proc/sys/net/ipv6/conf/zelan8/disable_ipv6");
        SendFrame(&guest, "g0", RouterAdvertisement());
        const CommandResult ping = guest.Run("ping -c 1 -W 5 192.168.8.1");
        EXPECT_TRUE(ping.Succeeded()) << ping;
        EXPECT_EQ("", routes("zelan8")) << "disable_ipv6 " << ipv6;
    }
}

TEST(Netifup, HostThatKeepsIpv6OnFailsTheStart) {
    Must("mount --bind /proc/sys /proc/sys && mount -o remount,bind,ro /proc/sys");
    const DaemonStart start = StartNetifup(8);
    EXPECT_FALSE(start.CameUp());
    EXPECT_NE(std::string::npos, start.Log().find("cannot keep IPv6 off")) << start;
    EXPECT_TRUE(WaitUntil(NothingIsLeft)) << LeftOver();
}

// The removal waits for a quiet moment; the tool, which asks by name, must not see the interface meanwhile.
TEST(Netifup, KilledDaemonsInterfaceLosesItsNameAndIsDownBeforeItIsRemoved) {
    DaemonStart start = MustComeUp(StartNetifup(8));
    Must("ip link set zelan8 up");
    const std::string index = RunShell("printf %x $(cat /sys/class/net/zelan8/ifindex)").output;
    KillDaemon(start);
    EXPECT_TRUE(WaitUntil([&] {
        return RunShell("ip -o link show zelan-x" + index).output.find("state DOWN") != std::string::npos;
    })) << LeftOver();
    EXPECT_FALSE(HasLink("zelan8"));
    EXPECT_TRUE(WaitUntil(NothingIsLeft)) << LeftOver();
}

TEST(Netifup, OneStartedRightAfterAKillReplacesItsPredecessor) {
    DaemonStart start = MustComeUp(StartNetifup(8));
    for (int round = 0; round < 10; round++) {
        SCOPED_TRACE(round);
        Must("ip address add 192.168.8.1/24 dev zelan8");
        KillDaemon(start);
        start = MustComeUp(StartNetifup(8));
        ASSERT_EQ("", RunShell("ip -4 -br address show zelan8 | grep 192").output) << "the old interface";
    }
    // The watchers of the nine predecessors wake up now; they must not touch the tenth.
    EXPECT_TRUE(WaitUntil([] { return RunShell("ps -e -o comm= | grep -c zelan-watch").output == "1\n"; }))
        << LeftOver();
    EXPECT_TRUE(HasLink("zelan8")) << LeftOver();
}

TEST(Netifup, LeftoverWithoutAWatcherIsReplaced) {
    DaemonStart start = MustComeUp(StartNetifup(8));
    Must("kill -9 $(ps -e -o pid=,comm= | awk '$2 == \"zelan-watch\" {print $1}')");
    KillDaemon(start);
    start = MustComeUp(StartNetifup(8));
    KillDaemon(start);
    EXPECT_TRUE(WaitUntil(NothingIsLeft)) << LeftOver();
}

TEST(Netifup, EndsWhenSomebodyRemovesItsInterface) {
    for (const char *end : {"zelan8", "zelan-if8"}) {
        DaemonStart start = MustComeUp(StartNetifup(8));
        Must(std::string("ip link set zelan8 up && ip link delete ") + end);
        EXPECT_TRUE(WaitUntil(NothingIsLeft)) << LeftOver();
        EXPECT_NE(std::string::npos, start.Log().find("zelan8 has been removed\n")) << start;
    }
}

TEST(Netifup, InterfaceOfSomebodyElseIsRefusedAndKept) {
    Must("ip link add name zelan8 type veth peer name other");
    DaemonStart start = StartNetifup(8);
    EXPECT_FALSE(start.CameUp());
    EXPECT_NE(std::string::npos, start.Log().find("zelan8 exists already")) << start;
    EXPECT_TRUE(HasLink("zelan8"));
    EXPECT_TRUE(WaitUntil([] { return !HasLink("zelan-sw8"); })) << LeftOver();
}

}  // namespace
