// The one process that cleans up behind the daemons.
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/daemonStart.h"

namespace {

std::string Watchers() {
    return RunShell("pgrep -x zelan-watch").output;
}

// As when the kernel runs out of memory or a whole control group is killed.
TEST(Watch, DeathOfEverythingIsCleanedByASweepAndByTheNextStart) {
    constexpr char STRANGERS[] = "/var/run/zelan-netifup-zelan9.pid";
    for (const bool byStart : {false, true}) {
        SCOPED_TRACE(byStart);
        const DaemonStart first = MustComeUp(StartNetifup(8));
        MustComeUp(StartNetifup(9));
        MustComeUp(StartNetifup(255));
        Must("kill -9 $(pgrep ^zelan-)");
        ASSERT_TRUE(WaitUntil([] { return RunShell("ps -e -o comm= | grep ^zelan-").output.empty(); }));
        EXPECT_TRUE(HasLink("zelan8") && HasLink("zelan-sw9")) << "nothing to clean up";
        unlink("/run/zelan/daemon-netifup-9");  // interfaces are found by themselves
        // And those whose numbers somebody else's have got meanwhile are left alone.
        Must(
            "i=$(cat /sys/class/net/zelan255/ifindex); ip link delete zelan255; ip link add his index $i "
            "type "
            "bridge;"
            " ip link set his up");
        WriteFileText(STRANGERS, std::to_string(getpid()) + "\n");
        if (byStart) {
            const DaemonStart any = MustComeUp(StartDaemon("zelan-detect", "zelan-detect", {}));
            EXPECT_FALSE(HasLink("zelan8")) << LeftOver();
            KillDaemon(any);
        } else {
            EXPECT_TRUE(RunCommand({ProgramPath("zelan-watch"), "--sweep"}).Succeeded());
            EXPECT_EQ("", RunShell("ip -br link | grep '^zelan'").output);
        }
        EXPECT_NE(0, access(first.pidFile.c_str(), F_OK)) << "names a dead process";
        EXPECT_EQ(std::to_string(getpid()) + "\n", ReadFileText(STRANGERS)) << "names a living process";
        unlink(STRANGERS);
        Must("ip -br link show his | grep -q ,UP && ip link delete his");
    }
    EXPECT_TRUE(WaitUntil(NothingIsLeft)) << LeftOver();
}

TEST(Watch, OneThatIsKilledAloneIsReplacedByTheNextStartAndMissesNothing) {
    const DaemonStart first = MustComeUp(StartNetifup(8));
    const DaemonStart second = MustComeUp(StartNetifup(9));
    Must("kill -9 $(pgrep -x zelan-watch)");
    EXPECT_TRUE(HasLink("zelan8") && HasLink("zelan9"));
    KillDaemon(first);
    const DaemonStart third = MustComeUp(StartNetifup(10));
    EXPECT_TRUE(WaitUntil([] { return !HasLink("zelan-sw8"); })) << "died while nobody looked\n"
                                                                 << LeftOver();
    KillDaemon(second);
    EXPECT_TRUE(WaitUntil([] { return !HasLink("zelan-sw9"); })) << "died later\n" << LeftOver();
    EXPECT_TRUE(HasLink("zelan10"));
    Must("kill -9 $(pgrep -x zelan-watch)");
    const CommandResult sweep = RunCommand({ProgramPath("zelan-watch"), "--sweep"});
    EXPECT_TRUE(sweep.Succeeded()) << "the watcher that it has started keeps its output open\n" << sweep;
    EXPECT_TRUE(HasLink("zelan10"));
    KillDaemon(third);
    EXPECT_TRUE(WaitUntil(NothingIsLeft)) << LeftOver();
}

// A daemon that has given up what it does not need may find it dead, and then starts it.
TEST(Watch, OneWithAStarterOfFewPowersKeepsNoneButItsOwn) {
    const DaemonStart start = MustComeUp(StartNetifup(8));
    Must("kill -9 $(pgrep -x zelan-watch)");
    ASSERT_TRUE(WaitUntil([] { return Watchers().empty(); }));
    Must("setpriv --bounding-set=-setpcap --inh-caps=-setpcap " + ProgramPath("zelan-watch") + " --sweep");
    EXPECT_EQ("CapEff:\t0000000000001000\n", RunShell("grep CapEff /proc/$(pgrep -x zelan-watch)/status").output);
    KillDaemon(start);
    EXPECT_TRUE(WaitUntil(NothingIsLeft)) << LeftOver();
}

// One that serves the host need not wait for its predecessor's end.
TEST(Watch, EndOfAPredecessorDoesNotReachItsSuccessor) {
    const DaemonStart first = MustComeUp(StartDaemon("zelan-detect", "first", {}));
    const std::string trace =
        " strace -o /tmp/trace -e trace=?rename,?renameat -e inject=?rename,?renameat:signal=STOP:when=1 ";
    BackgroundCommand second(
        {"sh", "-c",
         "exec 9> /tmp/report;" + trace + ProgramPath("zelan-detect") + " -s 9 -d /run/second.pid"});
    ASSERT_TRUE(WaitUntil([] { return RunShell("grep -q stopped /tmp/trace").Succeeded(); }));
    kill(first.pid, SIGKILL);
    EXPECT_TRUE(WaitUntil([&first] { return access(first.pidFile.c_str(), F_OK) != 0; }));
    Must("pkill -CONT -x zelan-detect");
    EXPECT_EQ(0, second.Wait());
    Must("kill -9 $(cat /run/second.pid)");
    EXPECT_TRUE(WaitUntil(NothingIsLeft)) << LeftOver();
}

TEST(Watch, FailedStartsLeaveNoProcessAndTheSwitchToItsGuest) {
    Machine guest("guest");
    const DaemonStart start = MustComeUp(StartNetifup(8));
    guest.ConnectToBridge("zelan-sw8", "g0");
    const std::string watcher = Watchers();
    for (const std::string name : {"zelan9", "zelan-if9", "zelan-sw9"}) {
        Must("ip link add " + name + " type bridge");
        const DaemonStart failed = StartNetifup(9);
        EXPECT_FALSE(failed.CameUp());
        EXPECT_TRUE(failed.Log().ends_with(" - " + name + " exists already and belongs to somebody else\n"))
            << failed;
        Must("ip link delete " + name);
    }
    // Whatever it was about to write.
    for (const std::string when : {"1", "2"}) {
        const std::string kill = " -e trace=?rename,?renameat -e inject=?rename,?renameat:signal=KILL:when=";
        EXPECT_EQ("", StartDaemonWith("zelan-detect", "/run/x", {"-s", "{W}", "-d", "/run/x"},
                                      STRACE + ("-o /tmp/trace" + kill + when))
                          .report);
    }
    KillDaemon(start);
    EXPECT_TRUE(WaitUntil([] { return !HasLink("zelan8") && !HasLink("zelan-sw9"); })) << LeftOver();
    EXPECT_EQ("zelan-watch\n", RunShell("ps -e -o comm= | grep ^zelan-").output);
    EXPECT_EQ(watcher, Watchers());
    EXPECT_TRUE(HasLink("zelan-sw8")) << "the guest's";
    Must("ip -n guest link delete g0");
    EXPECT_TRUE(WaitUntil(NothingIsLeft)) << LeftOver();
}

// Of all that is put aside the kernel removes nothing while it cannot remove the loopback interface.
TEST(Watch, RemovalThatKeepsFailingIsTriedAgainAndSaidOnce) {
    const DaemonStart start = MustComeUp(StartNetifup(8));
    const std::string watcher = std::to_string(atoi(Watchers().c_str()));
    BackgroundCommand trace({"strace", "-o", "/tmp/trace", "-e", "trace=sendto", "-p", watcher});
    ASSERT_TRUE(WaitUntil(
        [&] { return RunShell("grep -qE 'TracerPid:\\s+[1-9]' /proc/" + watcher + "/status").Succeeded(); }));
    Must("ip link set lo group 1191");
    KillDaemon(start);
    EXPECT_TRUE(
        WaitUntil([] { return RunShell("[ $(grep -c RTM_DELLINK /tmp/trace) -ge 4 ]").Succeeded(); }));
    const std::string line = "cannot remove what dead daemons have left";
    EXPECT_NE(std::string::npos, start.Log().find(line));
    EXPECT_EQ(start.Log().find(line), start.Log().rfind(line)) << start;
    Must("ip link set lo group 0");
    EXPECT_TRUE(WaitUntil(NothingIsLeft)) << LeftOver();
}

}  // namespace
