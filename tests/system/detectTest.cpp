#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include "tests/support/daemonStart.h"

namespace {

TEST(Detect, EachChangeIsLoggedAndTheFirstPictureIsNone) {
    // A resolver service keeps the file elsewhere and a link in its place.
    Must(
        "mkdir /run/r && echo nameserver 10.9.0.9 > /run/r/list && ln -sf /run/r/list /etc/resolv.conf; "
        "echo 1 > /proc/sys/net/ipv6/conf/default/disable_ipv6");
    const DaemonStart start = MustComeUp(StartDaemon("zelan-detect", "zelan-detect", {}));
    // What happens, and the lines that the log gains.
    static constexpr std::pair<const char *, const char *> CASES[] = {
        {"ip link add eth1 address 2:0:0:0:0:a type veth peer eth2 address 2:0:0:0:0:b mtu 1400",
         R"(link added: eth2, down, not running, 02:00:00:00:00:0B, mtu 1400
link added: eth1, down, not running, 02:00:00:00:00:0A, mtu 1500)"},
        {"ip link set eth2 up", "link changed: eth2, up, not running, 02:00:00:00:00:0B, mtu 1400"},
        {"ip link set eth1 up", R"(link changed: eth1, up, not running, 02:00:00:00:00:0A, mtu 1500
link changed: eth1, up, running, 02:00:00:00:00:0A, mtu 1500
link changed: eth2, up, running, 02:00:00:00:00:0B, mtu 1400)"},
        {"ip address add 10.9.0.1/24 dev eth1", R"(address added: 10.9.0.1/24 on eth1
route added: 10.9.0.0/24 on eth1)"},
        {"ip route add default via 10.9.0.7", "route added: default via 10.9.0.7 on eth1"},
        {"ip route add 10.8.0.0/16 via 10.9.0.7 metric 5; ip route add 10.7.0.0/16 dev eth1 table 77",
         "route added: 10.8.0.0/16 via 10.9.0.7 on eth1 metric 5"},
        {"ip route delete default", "route removed: default via 10.9.0.7 on eth1"},
        {"cd /proc/sys/net/ipv6/conf/eth1; echo 1 > addr_gen_mode; echo 0 > disable_ipv6; "
         "ip address add fd00::1/64 dev eth1 nodad",
         "address added: fd00::1/64 on eth1\nroute added: fd00::/64 on eth1 metric 256"},
        {"echo nameserver 10.9.0.7 > /run/r/new && mv /run/r/new /run/r/list",
         "name servers changed: 10.9.0.7"},
        {"echo nameserver 10.9.0.8 > /etc/resolv.conf", "name servers changed: 10.9.0.8"},
        {"printf '# x\\nnameserver 10.9.0.8\\nnameserver ::1\\n' > /etc/new && mv /etc/new /etc/resolv.conf",
         "name servers changed: 10.9.0.8, ::1"},
        {"rm /etc/resolv.conf", "name servers changed: none"},
        // The kernel tells nothing of the IPv4 routes that go with the link.
        {"ip link set eth1 down", R"(link changed: eth1, down, not running, 02:00:00:00:00:0A, mtu 1500
link changed: eth2, up, not running, 02:00:00:00:00:0B, mtu 1400
address removed: fd00::1/64 on eth1
route removed: fd00::/64 on eth1 metric 256
route removed: 10.9.0.0/24 on eth1
route removed: 10.8.0.0/16 via 10.9.0.7 on eth1 metric 5)"},
    };
    // In no order: what belongs to one change comes in the kernel's.
    const std::string compare = "sed '/ this kernel keeps /d; s/^zelan-detect - //' " + start.logFile +
                                " | sort > /tmp/logged; sort /tmp/expected | diff - /tmp/logged";
    std::string expected;
    for (const auto &[change, lines] : CASES) {
        Must(change);
        WriteFileText("/tmp/expected", expected.append(lines).append("\n"));
        EXPECT_TRUE(WaitUntil([&] { return RunShell(compare).Succeeded(); })) << change << RunShell(compare);
    }
    kill(start.pid, SIGTERM);
    EXPECT_TRUE(WaitUntil([&] { return access(start.pidFile.c_str(), F_OK) != 0; })) << "it died by itself";
    EXPECT_TRUE(WaitUntil(NothingIsLeft)) << LeftOver();
}

}  // namespace
