#include <gtest/gtest.h>

#include "tests/support/daemonStart.h"

namespace {

long Count(const std::string &text, const std::string &part) {
    long count = 0;
    for (size_t place = text.find(part); place != std::string::npos; place = text.find(part, place + 1)) {
        count++;
    }
    return count;
}

TEST(Detect, EachChangeIsOneLine) {
    // A resolver service keeps the file elsewhere and a link in its place.
    Must("mkdir /run/r && echo nameserver 10.9.0.9 > /run/r/list && ln -sf /run/r/list /etc/resolv.conf");
    DaemonStart start = MustComeUp(StartDaemon("zelan-detect", "zelan-detect", {}));
    EXPECT_EQ(0, Count(start.Log(), " added: ")) << "the first picture is no change";
    // What happens, and the line that the log gains once.
    static constexpr std::pair<const char *, const char *> CASES[] = {
        {"ip link add name eth1 type veth peer name eth2", "link added: eth1, down"},
        {"ip link set eth2 up && ip link set eth1 up", "link changed: eth1, up, running"},
        {"ip address add 10.9.0.1/24 dev eth1", "address added: 10.9.0.1/24 on eth1\n"},
        {"ip route add default via 10.9.0.7", "route added: default via 10.9.0.7 on eth1\n"},
        {"ip route add 10.8.0.0/16 via 10.9.0.7 metric 5",
         "route added: 10.8.0.0/16 via 10.9.0.7 on eth1 metric 5\n"},
        {"ip route delete default", "route removed: default via 10.9.0.7 on eth1\n"},
        {"ip route add 10.7.0.0/16 dev eth1 table 77; ip address add 10.9.1.1/24 dev eth1",
         "address added: 10.9.1.1/24 on eth1\n"},
        {"echo nameserver 10.9.0.7 > /run/r/new && mv /run/r/new /run/r/list",
         "name servers changed: 10.9.0.7\n"},
        {"echo nameserver 10.9.0.8 > /etc/resolv.conf", "name servers changed: 10.9.0.8\n"},
        {"printf 'nameserver 10.9.0.8\\nnameserver ::1\\n' > /etc/new && mv /etc/new /etc/resolv.conf",
         "name servers changed: 10.9.0.8, ::1\n"},
        {"rm /etc/resolv.conf", "name servers changed: none\n"},
        // The kernel tells nothing of the IPv4 routes that go with the link.
        {"ip link set eth1 down", "route removed: 10.8.0.0/16 via 10.9.0.7 on eth1 metric 5\n"},
        {"ip link delete eth1", "address removed: 10.9.0.1/24 on eth1\n"},
    };
    for (const auto &[change, line] : CASES) {
        Must(change);
        EXPECT_TRUE(WaitUntil([&start, text = line] { return Count(start.Log(), text) == 1; }))
            << change << start;
    }
    EXPECT_EQ(0, Count(start.Log(), "10.7.0.0")) << "of a table that is not the main one\n" << start.Log();
}

TEST(Detect, BurstOfChangesLosesNothing) {
    DaemonStart start = MustComeUp(StartDaemon("zelan-detect", "zelan-detect", {}));
    Must("for i in $(seq 200); do echo \"link add name a$i type veth peer name b$i\"; done | ip -batch -");
    Must("for i in $(seq 200); do echo \"address add 10.1.$i.1/24 dev a$i\"; done | ip -batch -");
    EXPECT_TRUE(WaitUntil([&] {
        return Count(start.Log(), "link added") == 400 && Count(start.Log(), "address added: 10.1.") == 200;
    })) << Count(start.Log(), "link added")
        << " links, " << Count(start.Log(), "address added: 10.1.") << " addresses";
}

}  // namespace
