#include <gtest/gtest.h>
#include <sys/utsname.h>

#include "tests/support/conversation.h"
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
        EXPECT_TRUE(guest.Run("ping -c 1 -W 5 192.168.8.1").Succeeded());
        EXPECT_EQ("", RunShell("ip -br address | grep -E 'zelan-.*fe80'").output)
            << "the switch is an endpoint";
        // The removal waits for a quiet moment; the tool, which asks by name, must not see it meanwhile.
        const std::string index = RunShell("printf %x $(cat /sys/class/net/zelan8/ifindex)").output;
        KillDaemon(start);
        EXPECT_TRUE(WaitUntil([&] {
            return RunShell("ip -o link show zelan-x" + index).output.find("state DOWN") != std::string::npos;
        })) << LeftOver();
        EXPECT_FALSE(HasLink("zelan8"));
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
    EXPECT_TRUE(WaitUntil([&] {
        SendFrame(&guest, "o0", RouterAdvertisement());
        return !routes("other").empty();
    })) << "not taken by a foreign interface";
    for (const char *ipv6 : {"1", "0"}) {
        Must("echo " + std::string(ipv6) + " > /proc/sys/net/ipv6/conf/zelan8/disable_ipv6");
        SendFrame(&guest, "g0", RouterAdvertisement());
        EXPECT_TRUE(guest.Run("ping -c 1 -W 5 192.168.8.1").Succeeded());
        EXPECT_EQ("", routes("zelan8")) << "disable_ipv6 " << ipv6;
    }
}

// The first datagram that gets from one guest to the other: one is from a DHCP server's port.
std::string FirstToArrive(const Machine &from, const Machine &to, const std::string &address) {
    const FileDescriptor receiver = SocketUnder(&to, SOCK_DGRAM, {address, 68});
    for (const int port : {67, 69}) {
        SendTo(SocketUnder(&from, SOCK_DGRAM, {"0.0.0.0", port}), {address, 68},
               "from " + std::to_string(port));
    }
    return ReceiveOnce(receiver);
}

// On a bridged network guests may be what machines outside may be.
TEST(Netifup, GuestsAreNoRoutersOrDhcpServersToEachOtherButOnABridgedNetwork) {
    MustComeUp(StartNetifup(8));
    MustComeUp(StartDaemon("zelan-bridge", "zelan-bridge-0", {"-n", "0", "-ieth9"}));
    for (const int network : {0, 8}) {
        SCOPED_TRACE(network);
        const std::string subnet = "10.9." + std::to_string(network) + ".";
        Machine first("first" + std::to_string(network));
        Machine second("second" + std::to_string(network));
        first.ConnectToBridge("zelan-sw" + std::to_string(network), "g0", subnet + "1/24");
        second.ConnectToBridge("zelan-sw" + std::to_string(network), "g0", subnet + "2/24");
        if (network == 8) {
            ASSERT_TRUE(WaitUntil(BothGuestsAreKnown)) << RunShell("nft list ruleset").output;
            Must("nft flush ruleset");
            ASSERT_TRUE(WaitUntil([] { return RunShell("nft list table bridge zelan").Succeeded(); }));
        }
        SendFrame(&first, "g0", RouterAdvertisement());
        // Receivers take tags without a VLAN off.
        SendFrame(&first, "g0", RouterAdvertisement({0}));
        SendFrame(&first, "g0", RouterAdvertisement({0, 0}));
        EXPECT_EQ(network == 8 ? "from 69" : "from 67", FirstToArrive(first, second, subnet + "2"));
        EXPECT_EQ(network == 8, second.Run("ip -6 route show default").output.empty());
    }
}

// What stands in a switch's table of addresses stays there, so that it does not begin to send everything
// everywhere; for a guest that finds no room it does.
TEST(Netifup, GuestThatInventsAddressesFillsNoMoreThanTheTable) {
    if (utsname kernel = {}; uname(&kernel) == 0 && strverscmp(kernel.release, "6.7") < 0) {
        GTEST_SKIP() << "this kernel knows no limit";
    }
    const std::string settledMac = "02:00:00:00:02:01", lateMac = "02:00:00:00:03:01";
    MustComeUp(StartNetifup(8));
    Machine hostile("hostile"), settled("settled"), late("late");
    hostile.ConnectToBridge("zelan-sw8", "g0");
    settled.ConnectToBridge("zelan-sw8", "g0");
    late.ConnectToBridge("zelan-sw8", "g0");
    EXPECT_TRUE(WaitUntil([&] {
        SendFrame(&settled, "g0", TestFrame{"ff:ff:ff:ff:ff:ff", settledMac, {}, "here"}.Bytes());
        return RunShell("bridge fdb show br zelan-sw8 | grep -q " + settledMac).Succeeded();
    }));
    std::vector<std::string> flood;
    for (int i = 1000; i < 7000; i++) {
        const std::string n = std::to_string(i);
        const std::string mac = "02:00:00:01:" + n.substr(0, 2) + ":" + n.substr(2);
        flood.push_back(TestFrame{settledMac, mac, {}, "flood"}.Bytes());
    }
    SendFrames(&hostile, "g0", flood);
    SendFrame(&late, "g0", TestFrame{settledMac, lateMac, {}, "late"}.Bytes());
    const int learned = atoi(RunShell("bridge fdb show br zelan-sw8 | grep -vc permanent").output.c_str());
    EXPECT_LE(learned, 4096);
    EXPECT_GE(learned, 4000) << "no flood";
    FrameEar settledEar(&settled, "g0");
    FrameEar lateEar(&late, "g0");
    SendFrames(&hostile, "g0",
               {TestFrame{settledMac, "02:00:00:01:00:00", {}, "secret"}.Bytes(),
                TestFrame{lateMac, "02:00:00:01:00:00", {}, "news"}.Bytes(),
                TestFrame{"ff:ff:ff:ff:ff:ff", "02:00:00:01:00:00", {}, "end"}.Bytes()});
    EXPECT_TRUE(settledEar.HearUntil("secret"));
    EXPECT_TRUE(lateEar.HearUntil("end"));
    EXPECT_TRUE(lateEar.HasHeard("news")) << "a guest that is not in the table";
    EXPECT_FALSE(lateEar.HasHeard("secret")) << "another guest's frame";
}

TEST(Netifup, EndsWhenSomebodyRemovesItsInterface) {
    for (const char *end : {"zelan8", "zelan-if8"}) {
        const DaemonStart start = MustComeUp(StartNetifup(8));
        Must(std::string("ip link set zelan8 up && ip link delete ") + end);
        EXPECT_TRUE(WaitUntil(NothingIsLeft)) << LeftOver();
        EXPECT_NE(std::string::npos, start.Log().find("zelan8 has been removed\n")) << start;
    }
}

}  // namespace
