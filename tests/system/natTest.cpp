#include <netinet/in.h>
#include <unistd.h>

#include <chrono>

#include "tests/system/natNetwork.h"

namespace {

class Nat : public NatNetwork {};

std::string ForwardingOf(const char *name) {
    return ReadFileText(std::string("/proc/sys/net/ipv4/conf/") + name + "/forwarding");
}

TEST_F(Nat, GuestGetsOutUnderTheHostsAddressByAnyAdapter) {
    Start(Configuration());
    Responder tcp(&outside_, SOCK_STREAM, {OUTSIDE, 7000}, Peer);
    Responder udp(&outside_, SOCK_DGRAM, {OUTSIDE, 7000}, Peer);
    EXPECT_EQ(HOST, Exchange(guest_.get(), SOCK_STREAM, {OUTSIDE, 7000}, "x")) << start_;
    EXPECT_EQ(HOST, Exchange(guest_.get(), SOCK_DGRAM, {OUTSIDE, 7000}, "x")) << start_;
    EXPECT_TRUE(GuestPings(OUTSIDE)) << start_;
    EXPECT_EQ("", Exchange(&outside_, SOCK_STREAM, {GUEST, 22}, "x", SHORT)) << "the way in is open";
    // An answer to nothing belongs to no flow, so that nobody would translate its sender on the way out.
    const FileDescriptor raw = SocketOn(guest_.get(), SOCK_RAW, AF_INET, IPPROTO_ICMP);
    SendTo(raw, {OUTSIDE, 0}, std::string("\0\0\xff\xff\0\0\0\0", 8));
    EXPECT_TRUE(GuestPings(OUTSIDE));
    EXPECT_EQ("2\n0\n",
              outside_.Run("nstat -asz IcmpInEchos IcmpInEchoReps | awk '/^Icmp/ {print $2}'").output);
    Machine late("late");
    late.ConnectToHost("eth1", "eth0", "198.51.100.9/24");
    Must("ip address add 198.51.100.1/24 dev eth1");
    EXPECT_TRUE(WaitUntil([] { return ForwardingOf("eth1") == "1\n"; }));
    EXPECT_TRUE(GuestPings("198.51.100.9"));
}

// Those of one guest never fill the host's table of flows, where each stands once more.
TEST_F(Nat, OneGuestsFlowsAreLimited) {
    constexpr int LIMIT = 4096;
    Start(Configuration());
    Machine other("zelan-g2");
    other.ConnectToBridge("zelan-sw8", "eth0", "192.168.10.51/24");
    Must(std::string("ip -n zelan-g2 route add default via ") + GATEWAY);
    const auto count = [] {
        return atoi(ReadFileText("/proc/sys/net/netfilter/nf_conntrack_count").c_str());
    };
    const FileDescriptor flood = SocketOn(guest_.get(), SOCK_DGRAM);
    const auto begin = std::chrono::steady_clock::now();
    for (int port = 10000; port < 10000 + 2 * LIMIT; port++) {
        SendTo(flood, {OUTSIDE, port}, "x");
    }
    if (std::chrono::steady_clock::now() - begin > std::chrono::seconds(25)) {
        GTEST_SKIP() << "on this machine the first flows end before the last ones begin";
    }
    EXPECT_TRUE(WaitUntil([&count] { return count() > LIMIT / 2; })) << count();
    EXPECT_LE(count(), LIMIT + 100);
    Responder udp(&outside_, SOCK_DGRAM, {OUTSIDE, 7000}, Peer);
    EXPECT_EQ(HOST, Exchange(&other, SOCK_DGRAM, {OUTSIDE, 7000}, "x"));
    EXPECT_EQ("", Exchange(guest_.get(), SOCK_DGRAM, {OUTSIDE, 7000}, "x", SHORT)) << "no limit was met";
}

// Whether a table is as this text of nft(8)'s has it, in which it has another name. What only a newer nft has
// words for is left out.
void ExpectTable(const std::string &family, const std::string &name, const std::string &chains,
                 const std::string &text, const std::string &enter = "") {
    WriteFileText("/tmp/expected.nft", "table " + family + " expected {\n" + text + "}\n");
    Must(enter + "nft -f /tmp/expected.nft");
    const auto list = [&](const std::string &table) {
        return RunShell("show() { " + enter + "nft list $1 " + family + " " + table +
                        " $2 | grep -v -e '^table' -e 'nh,0,16 set' -e 'set @nh' |"
                        " sed -E 's/(update @clients . )?iif . @th,288,48( @clients| .) //g'; }; "
                        "show table | sort; for chain in " +
                        chains + "; do show chain $chain; done")
            .output;
    };
    EXPECT_EQ(list("expected"), list(name));
}

TEST_F(Nat, TablesAreAsDocumented) {
    Start(Configuration("", "", "8888 = 192.168.10.50:80\n"));
    std::string text = R"(
  ct timeout udp-1234 { protocol udp; l3proto ip; policy = { unreplied : 30, replied : 1234 }; }
  ct helper ftp { type "ftp" protocol tcp; l3proto ip; }
  set routers { type ipv4_addr; elements = { ROUTER }; }
  map timeouts { type ipv4_addr : verdict; elements = { ROUTER : jump udp-1234 }; }
  map helpers { type ipv4_addr : verdict; elements = { ROUTER : jump ftp }; }
  map forwards { type inet_proto . inet_service : ipv4_addr; elements = { tcp . 8888 : ROUTER }; }
  set kept { type ipv4_addr . inet_proto . inet_service; }
  set adapters { type iface_index; elements = { "eth0" }; }
  set same-adapter { type iface_index . iface_index; elements = { "eth0" . "eth0" }; }
  chain guard { type filter hook prerouting priority raw;
    iifgroup 1193 ip daddr 127.0.0.0/8 drop
    iifgroup 1192 meta nfproto ipv4 fib saddr . iif oif 0 drop
    iifgroup 1190 notrack
  }
  chain input { type filter hook input priority filter;
    iifgroup 1190 drop
  }
  chain forward { type filter hook forward priority filter;
    iifgroup 1190 oifgroup 1190 accept
    iifgroup 1190-1192 drop
    oifgroup 1190-1192 drop
    iifgroup 1193 ct state invalid drop
    oifgroup 1193 ct state invalid drop
    iifgroup 1193 meta nfproto != ipv4 drop
    iifgroup 1193 ip saddr != @routers drop
    oifgroup 1193 ct state established,related accept
    oifgroup 1193 ct status dnat accept
    oifgroup 1193 drop
    iifgroup 1193 accept
    iif @adapters iif . oif != @same-adapter drop
  }
  chain forwards { type nat hook prerouting priority dstnat;
    ip daddr . meta l4proto . th dport @kept accept
    meta nfproto ipv4 fib daddr type local dnat ip to meta l4proto . th dport map @forwards
  }
  chain own-forwards { type nat hook output priority -100;
    ip daddr . meta l4proto . th dport @kept accept
    meta nfproto ipv4 fib daddr type local dnat ip to meta l4proto . th dport map @forwards
  }
  chain translate { type nat hook postrouting priority srcnat;
    ip saddr vmap @timeouts
    oifgroup 1193 ip daddr vmap @timeouts
    ip saddr vmap @helpers
    oifgroup 1193 ip daddr vmap @helpers
    ip saddr @routers masquerade
    oifgroup 1193 fib saddr type local masquerade
  }
  chain udp-1234 { meta l4proto udp ct timeout set "udp-1234"; }
  chain ftp { tcp dport 21 ct helper set "ftp"; }
)";
    const std::string router =
        RunShell("nft list set inet zelan routers | grep -o '100[0-9.]*'").output.substr(0, 14);
    for (size_t place = 0; (place = text.find("ROUTER")) != std::string::npos;) {
        text.replace(place, 6, router);
    }
    ExpectTable("inet", "zelan", "guard input forward forwards own-forwards translate", text);
    // The router is the daemon's, which has its namespace open.
    const std::string space =
        RunShell("cd /proc/" + std::to_string(start_.pid) +
                 "/fd; for f in *; do readlink $f | grep -q ^net: && echo $PWD/$f; done")
            .output;
    ExpectTable("ip", "zelan-natd", "guard flow-limit forward translate", R"(
  ct timeout udp-1234 { protocol udp; l3proto ip; policy = { unreplied : 30, replied : 1234 }; }
  ct helper ftp { type "ftp" protocol tcp; l3proto ip; }
  set flows { type ipv4_addr; size 255; flags dynamic; }
  map forwards { type inet_proto . inet_service : ipv4_addr . inet_service;
    elements = { tcp . 8888 : 192.168.10.50 . 80 }; }
  chain udp-1234 { meta l4proto udp ct timeout set "udp-1234"; }
  chain ftp { tcp dport 21 ct helper set "ftp"; }
  chain guard { type filter hook prerouting priority raw; iifname "guests" ip saddr != 192.168.10.0/24 drop; }
  chain flow-limit { type filter hook prerouting priority mangle;
    iifname "guests" ct state new add @flows { ip saddr ct count 4096 } accept
    iifname "guests" ct state new drop
  }
  chain forwards { type nat hook prerouting priority dstnat;
    iifname "uplink" dnat ip to meta l4proto . th dport map @forwards
  }
  chain forward { type filter hook forward priority filter;
    ct state invalid drop
    ct state established,related accept
    iifname "guests" oifname "uplink" accept
    ct status dnat accept
    drop
  }
  chain translate { type nat hook postrouting priority srcnat;
    jump udp-1234
    jump ftp
    oifname "uplink" masquerade
  }
)",
                "nsenter --net=" + space.substr(0, space.find('\n')) + " ");
    EXPECT_EQ(
        "lo 127.0.0.1/8 host\nguests 192.168.10.2/24 192.168.10.255\nuplink 100.127.252.34/30 "
        "100.127.252.35\n"
        "default via 100.127.252.33 dev uplink proto static \n" +
            ReadFileText("/var/run/zelan-natd-8.mac"),
        RunShell("nsenter --net=" + space.substr(0, space.find('\n')) +
                 " sh -c 'ip -o address | awk \"{print \\$2, \\$4, \\$6}\"; ip route | grep via;"
                 " ip -br link show guests | awk \"{print toupper(\\$3)}\"'")
            .output);
    const std::string queues = " numtxqueues 1 numrxqueues 1\n";
    EXPECT_EQ(
        "zelan-nt8 group 1190" + queues + "zelan-sw8 group 1190 mcast_snooping 0" + queues +
            "zelan-up8 group 1193" + queues,
        RunShell("for link in zelan-nt8 zelan-sw8 zelan-up8; do echo $link $(ip -d -o link show $link | "
                 "grep -oE '(group|mcast_snooping|numtxqueues|numrxqueues) [0-9]+'); done")
            .output);
    // A guest is told by its switch, or where the kernel cannot, by its port.
    const auto guests = [] { return RunShell("nft list set bridge zelan guests").output; };
    EXPECT_TRUE(WaitUntil([&] { return guests().find("elements") != std::string::npos; })) << guests();
    const bool byName = guests().find("ifname") != std::string::npos;
    const std::string key = byName ? "meta ibrname" : "iif";
    ExpectTable("bridge", "zelan", "questions requests datagrams of-guests frames",
                R"(
  set senders { type iface_index; size 16384; flags dynamic, timeout; timeout 2h; }
  set newcomers { type iface_index; size 16384; flags dynamic, timeout; timeout 2h; }
  set clients { type iface_index . ether_addr; size 65536; flags dynamic, timeout; timeout 24h; }
  chain questions { meta protocol ip @nh,0,8 != 0x45 drop; }
  chain requests {
    @th,64,24 != 0x10106 drop
    accept
    update @newcomers { iif limit rate 16/hour burst 32 packets } accept
    drop
  }
  chain datagrams {
    udp sport 67 drop
    udp dport 53 jump questions
    udp dport 67 update @senders { iif limit rate 10/second burst 128 packets } jump requests
    udp dport 67 drop
  }
  chain of-guests {
    meta l4proto udp jump datagrams
    tcp dport 53 jump questions
    icmpv6 type nd-router-advert drop
    meta protocol 8021q @ll,112,16 & 0xfff == 0x0 drop
    meta protocol 8021ad @ll,112,16 & 0xfff == 0x0 drop
    meta protocol 0x0004 @ll,112,48 0xaaaa03000000 drop
  }
  set guests { type )" +
                    std::string(byName ? "ifname" : "iface_index") + "; elements = { " +
                    (byName ? "zelan-sw8" : "zelan-g-eth0") +
                    " }; }\n  chain frames { type filter hook prerouting priority filter;"
                    " iifgroup != 1190 " +
                    key + " @guests jump of-guests; }\n");
}

TEST_F(Nat, ForwardsReachTheGuestFromEverywhere) {
    Start(Configuration("", "6000 = 192.168.10.50:6001\n", "0x22B8 = 192.168.10.50:80\n"));
    Responder tcp(guest_.get(), SOCK_STREAM, {GUEST, 80}, Peer);
    Responder udp(guest_.get(), SOCK_DGRAM, {GUEST, 6001}, Peer);
    const std::string hostsEnd = "100.127.252.33";
    const std::tuple<const Machine *, const char *, std::string> cases[] = {{&outside_, HOST, OUTSIDE},
                                                                            {nullptr, HOST, hostsEnd},
                                                                            {nullptr, "127.0.0.1", hostsEnd},
                                                                            {guest_.get(), HOST, hostsEnd}};
    for (const auto &[client, address, seenAs] : cases) {
        EXPECT_EQ(seenAs, Exchange(client, SOCK_STREAM, {address, 8888}, "x")) << address;
        EXPECT_EQ(seenAs, Exchange(client, SOCK_DGRAM, {address, 6000}, "x")) << address;
    }
}

// Anybody may have a port from 1024 on.
TEST_F(Nat, ForwardIsTakenUpWhenAnotherProgramLeavesItsPort) {
    auto taken = std::make_unique<Responder>(nullptr, SOCK_STREAM, Endpoint{"0.0.0.0", 8889},
                                             [](auto &, auto &) { return "taken"; });
    Start(Configuration("", "", "8889 = 192.168.10.50:80\n"));
    Responder web(guest_.get(), SOCK_STREAM, {GUEST, 80}, Peer);
    EXPECT_EQ("taken", Exchange(&outside_, SOCK_STREAM, {HOST, 8889}, "x"));
    taken.reset();
    EXPECT_TRUE(WaitUntil([this] {
        return Exchange(&outside_, SOCK_STREAM, {HOST, 8889}, "x", SHORT) == OUTSIDE;
    })) << start_;
    EXPECT_NE(std::string::npos, start_.Log().find("zelan-watch - TCP port 8889 is forwarded to network 8"));
    EXPECT_NE("", RunShell("ss -Hltn 'sport = 8889'").output) << "nobody keeps others from it";
    Must("nft flush ruleset");
    EXPECT_TRUE(WaitUntil([this] {
        return Exchange(&outside_, SOCK_STREAM, {HOST, 8889}, "x", SHORT) == OUTSIDE;
    })) << "it is not put back";
    const std::string mac = ReadFileText("/var/run/zelan-natd-8.mac");
    KillDaemon(start_);
    start_ = MustComeUp(StartNat(Configuration("", "", "8889 = 192.168.10.50:80\n")));
    const std::string log = start_.Log();
    EXPECT_EQ(log.find("is not forwarded"), log.rfind("is not forwarded")) << "nor left to the next daemon\n"
                                                                           << log;
    EXPECT_EQ(OUTSIDE, Exchange(&outside_, SOCK_STREAM, {HOST, 8889}, "x")) << "right after the kill";
    EXPECT_EQ(mac, ReadFileText("/var/run/zelan-natd-8.mac"));
}

TEST_F(Nat, ForwardThatCannotBeIsNamedAndThousandsOfOthersWork) {
    constexpr int LAST = 11999;  // more than a process usually has files
    std::string forwards = "8888 = 192.168.10.50:80\n8889 = 192.168.10.50:80\n";
    for (int port = 10000; port <= LAST; port++) {
        forwards += std::to_string(port) + " = 192.168.10.50:" + std::to_string(port) + "\n";
    }
    Responder takenOnLoopback(nullptr, SOCK_STREAM, {"127.0.0.1", 8888}, Peer);
    Responder taken(nullptr, SOCK_STREAM, {"0.0.0.0", 8889}, Peer);
    Start(Configuration("activeFTP = 0\n", "6000 = 10.1.1.1:1\n", forwards));
    const std::string lines =
        "zelan-natd - UDP port 6000 is not forwarded: 10.1.1.1 is no address of the network\n"
        "zelan-natd - TCP port 8888 of 127.0.0.1 is not forwarded: another program has it\n"
        "zelan-natd - TCP port 8889 is not forwarded to 192.168.10.50: Address already in use\n";
    EXPECT_EQ(lines, start_.Log().substr(0, lines.size()));
    Responder guest(guest_.get(), SOCK_STREAM, {GUEST, LAST}, Peer);
    Responder web(guest_.get(), SOCK_STREAM, {GUEST, 80}, Peer);
    EXPECT_EQ(OUTSIDE, Exchange(&outside_, SOCK_STREAM, {HOST, LAST}, "x"));
    EXPECT_EQ(OUTSIDE, Exchange(&outside_, SOCK_STREAM, {HOST, 8888}, "x")) << "a local program ended it";
    for (int port : {8888, 8889}) {
        EXPECT_EQ("127.0.0.1", Exchange(nullptr, SOCK_STREAM, {"127.0.0.1", port}, "x"))
            << "the host's own server lost its port";
    }
    const DaemonStart another = MustComeUp(StartAnotherNat("8888 = 192.168.11.50:80\n"));
    EXPECT_NE(std::string::npos, another.Log().find("another network does so already")) << another;
    EXPECT_EQ(OUTSIDE, Exchange(&outside_, SOCK_STREAM, {HOST, 8888}, "x"));
}

TEST_F(Nat, KilledDaemonLeavesNothingButForwardingThatTheHostHasTurnedOn) {
    Start(Configuration("", "", "8888 = 192.168.10.50:80\n"));
    EXPECT_EQ("1\n", ForwardingOf("eth0"));
    EXPECT_EQ("0\n", ForwardingOf("all"));
    EXPECT_NE(std::string::npos, LeftOver().find("nsid")) << "no namespace to look for";
    guest_.reset();
    KillDaemon(start_);
    EXPECT_TRUE(WaitUntil(NothingIsLeft)) << LeftOver();
    EXPECT_TRUE(WaitUntil([] { return ForwardingOf("eth0") == "0\n"; })) << "the host still forwards";
    Responder reuse(nullptr, SOCK_STREAM, {HOST, 8888}, Peer);
    // The next start catches up with what nobody followed.
    Start(Configuration());
    Must("kill -9 $(pgrep -x zelan-watch)");
    Machine late("late");
    late.ConnectToHost("eth1", "eth0", "198.51.100.9/24");
    Must("ip address add 198.51.100.1/24 dev eth1 && nft flush ruleset");
    MustComeUp(StartNetifup(1));
    EXPECT_TRUE(WaitUntil([this] { return GuestPings(OUTSIDE) && GuestPings("198.51.100.9"); }));
    guest_.reset();
    Must("kill -9 $(pgrep ^zelan-)");
    ASSERT_TRUE(WaitUntil([] { return RunShell("pgrep ^zelan-").output.empty(); }));
    EXPECT_EQ("1\n", ForwardingOf("eth0"));
    EXPECT_TRUE(RunCommand({ProgramPath("zelan-watch"), "--sweep"}).Succeeded());
    EXPECT_EQ("0\n0\n", ForwardingOf("eth0") + ForwardingOf("eth1"));
    EXPECT_TRUE(WaitUntil(NothingIsLeft)) << LeftOver();
    start_ = StartNat(Configuration());
    WriteFileText("/proc/sys/net/ipv4/ip_forward", "1");
    KillDaemon(start_);
    EXPECT_TRUE(WaitUntil(NothingIsLeft)) << LeftOver();
    EXPECT_EQ("1\n", ForwardingOf("eth0"));
}

TEST_F(Nat, SendersOfOtherMakersAreRefusedWhenAsked) {
    Start(Configuration("allowAnyOUI = 0\n"));
    for (const auto &[mac, allowed] : {std::pair{"52:54:00:12:34:56", true}, {"00:1b:21:00:00:01", false}}) {
        Must(std::string("ip -n zelan-g link set eth0 address ") + mac);
        EXPECT_EQ(allowed, GuestPings(OUTSIDE)) << mac;
    }
}

TEST_F(Nat, HostThatDropsWhatItForwardsIsNamed) {
    Must(
        "for what in ip6-other-forward-drop inet-other-postrouting-drop inet-other-forward-accept"
        " ip-mine-forward-drop inet-mine-forward-drop; do IFS=-; set -- $what; nft \"table $1 $2"
        " { chain $3-$4 { type filter hook $3 priority 0; policy $4; }; }\"; done");
    Start(Configuration());
    const auto named = [this] { return RunShell("grep -o 'table .* drops' " + start_.logFile).output; };
    EXPECT_TRUE(WaitUntil([&] { return named() == "table mine drops\ntable mine drops\n"; })) << start_;
}

}  // namespace
