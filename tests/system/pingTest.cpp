#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "tests/support/netns.h"

namespace {

// Arguments, the status that they lead to, and why.
using PingCase = std::tuple<const char *, int, const char *>;

// All at once, so that none may take another's answer.
void ExpectStatuses(const std::vector<PingCase> &cases) {
    std::string line;
    for (const auto &[arguments, status, why] : cases) {
        line.append("(").append(ProgramPath("orvane-ping")).append(" ").append(arguments);
        line.append(" 2>&1; [ $? -eq ").append(std::to_string(status)).append(" ] || echo \"");
        line.append(why).append("\") & ");
    }
    EXPECT_EQ("", RunShell(line + "wait").output);
}

TEST(OrvanePing, StatusTellsWhetherTheSubnetIsFree) {
    Machine router("router");
    router.ConnectToHost("eth1", "r0", "10.9.0.1/24");
    Must("ip address add 10.9.0.2/24 broadcast 10.9.0.255 dev eth1");
    Must("ip link add name down1 type veth peer name down2 && ip address add 10.11.0.1/24 dev down1");
    Must("ip link set down1 up && ip link set down1 down");
    BackgroundCommand ping({ProgramPath("orvane-ping"), "10.9.0.77", "-t", "2", "-i", "1"}, "/tmp/said");
    // Who may send it something can make it do no more than that.
    EXPECT_TRUE(WaitUntil([&] {
        const std::string status = ReadFileText("/proc/" + std::to_string(ping.pid()) + "/status");
        return status.find("Uid:\t65534\t65534\t65534\t65534\n") != std::string::npos &&
               status.find("CapPrm:\t0000000000000000\n") != std::string::npos;
    }));
    EXPECT_EQ(1, ping.Wait());
    EXPECT_EQ("10.9.0.77: nothing answers\n", ReadFileText("/tmp/said"));
    ExpectStatuses({
        {"-q 10.9.0.1 -t 5 -i 1", 0, "a neighbour answers"},
        {"-q 10.9.0.2 -t 5 -i 1", 0, "the host itself answers"},
        {"-q 10.9.0.77 -t 1 -i 1", 1, "nobody has the address"},
        {"-q -b 10.9.0.0 -t 1 -i 1", 1, "nobody answers broadcasts"},
        {"-q -b 192.168.40.0 -t 5 -i 1", 2, "no route"},
        {"-q 10.11.0.1 -t 5 -i 1", 2, "the host's own, of an interface that is down"},
    });
    ASSERT_TRUE(router
                    .Run("sysctl -qw net.ipv4.icmp_echo_ignore_broadcasts=0 net.ipv4.ip_forward=1 && "
                         "ip route add unreachable 10.21.0.0/16 && ip route add blackhole 10.22.0.0/16")
                    .Succeeded());
    Must("ip route add default via 10.9.0.1 && ip route add unreachable 10.30.0.0/16");
    ExpectStatuses({
        {"-q -b 10.9.0.0 -t 5 -i 1", 0, "a neighbour answers the broadcast"},
        {"-q -b 192.168.40.0 -t 5 -i 1", 2, "the router has no way to the network"},
        {"-q -b 10.21.0.0 -t 1 -i 1", 1, "the router knows the network and finds no host"},
        {"-q -b 10.22.0.0 -t 1 -i 1", 1, "the router says nothing"},
        {"-q -b 10.30.0.0 -t 5 -i 1", 2, "the host's own route refuses"},
    });
}

// The library takes 3 and above for "not free".
TEST(OrvanePing, WrongArgumentsGiveThreeAndAWord) {
    const std::string seconds = " needs a number of seconds from 1 to 86400, not ";
    EXPECT_EQ(
        "option -i is missing\nusage: [-q] [-b] ADDRESS -t SECONDS -i SECONDS\n"
        "\"10.9.0\" is no IPv4 address\noption -t" +
            seconds + "\"x\"\noption -i" + seconds + "\"0\"\noption -t" + seconds +
            "\"86401\"\nunknown option -z\n"
            "usage: [-q] [-b] ADDRESS -t SECONDS -i SECONDS\n",
        RunShell(
            "for words in '-q 10.9.0.1 -t 1' '-q -t 1 -i 1' '-q 10.9.0 -t 1 -i 1' '-q 10.9.0.1 -t x -i 1'"
            " '-q 10.9.0.1 -t 1 -i 0' '10.9.0.1 -t 86401 -i 1' '-q -z 10.9.0.1 -t 1 -i 1'"
            " '1.1.1.1 1.1.1.2 -t 1 -i 1'; do " +
            ProgramPath("orvane-ping") +
            " $words 2>&1; [ $? = 3 ] || echo \"not 3: $words\"; done | sed 's/^orvane-ping - //'")
            .output);
}

}  // namespace
