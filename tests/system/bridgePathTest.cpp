// What crosses a cable, and what does not, on every way that frames can take.
#include <gtest/gtest.h>
#include <linux/bpf.h>
#include <sys/syscall.h>
#include <sys/utsname.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "tests/support/daemonStart.h"
#include "tests/support/frames.h"

namespace {

enum class Way { LINKS, FILTERS, COPIES };

DaemonStart StartBridge() {
    return MustComeUp(StartDaemon("zelan-bridge", "zelan-bridge-0", {"-n", "0"}));
}

constexpr const char *EVERYBODY = "ff:ff:ff:ff:ff:ff";
constexpr const char *HOST = "02:00:00:00:00:01";
constexpr const char *OUTSIDE = "02:00:00:00:00:0a";
constexpr const char *THIRD = "02:00:00:00:00:0c";
constexpr const char *GUEST = "02:00:00:00:00:0b";

// A machine outside on the other end of the host's adapter, and a guest on the switch.
class BridgeWay : public testing::TestWithParam<Way> {
  protected:
    Machine outside{"outside"};
    Machine guest{"guest"};
    DaemonStart bridge;

    bool HostTakesPart() const { return GetParam() != Way::COPIES; }
    // Kernels before 6.6 have no links for interfaces, and get filters all the same.
    bool IsByFilters() const {
        utsname kernel = {};
        return GetParam() == Way::FILTERS ||
               (GetParam() == Way::LINKS && uname(&kernel) == 0 && strverscmp(kernel.release, "6.6") < 0);
    }

    void SetUp() override {
        if (GetParam() == Way::FILTERS) {
            ASSERT_TRUE(RefuseCall(SYS_bpf, EINVAL, BPF_LINK_CREATE));
        } else if (GetParam() == Way::COPIES) {
            ASSERT_TRUE(RefuseCall(SYS_bpf, EPERM));
        }
        outside.ConnectToHost("eth1", "o0", "10.9.0.1/24");
        Must("ip link set eth1 address " + std::string(HOST) + " && ip address add 10.9.0.3/24 dev eth1");
        Must("ip -n outside link set o0 address " + std::string(OUTSIDE));
    }

    void Start() {
        bridge = StartBridge();
        const bool hasFilter = RunShell("tc filter show dev eth1 ingress | grep -q zelan").Succeeded();
        EXPECT_EQ(IsByFilters(), hasFilter) << bridge;
        const auto isCopied = [] { return RunShell("pgrep -x zelan-copy").Succeeded(); };
        EXPECT_EQ(GetParam() == Way::COPIES, HostTakesPart() ? isCopied() : WaitUntil(isCopied)) << bridge;
        guest.ConnectToBridge("zelan-sw0", "g0", "10.9.0.2/24");
        Must("ip -n guest link set g0 address " + std::string(GUEST));
    }
};

std::string NameOf(const testing::TestParamInfo<Way> &way) {
    return way.param == Way::LINKS ? "Links" : way.param == Way::FILTERS ? "Filters" : "Copies";
}

INSTANTIATE_TEST_SUITE_P(Over, BridgeWay, testing::Values(Way::LINKS, Way::FILTERS, Way::COPIES), NameOf);

// Sends /tmp/data from one to the other; what arrives must be the same.
void Transfer(const Machine *from, const Machine *to, const std::string &address) {
    const auto on = [](const Machine *machine, const std::string &line) {
        const std::vector<std::string> words = {"sh", "-c", line};
        return machine != nullptr ? machine->Inside(words) : words;
    };
    BackgroundCommand receiver(on(to, "nc -l 7000 > /tmp/copy"));
    ASSERT_TRUE(WaitUntil([&] { return RunCommand(on(to, "ss -ltn | grep -q :7000")).Succeeded(); }));
    const CommandResult sender = RunCommand(on(from, "nc -N " + address + " 7000 < /tmp/data"));
    EXPECT_TRUE(sender.Succeeded()) << sender;
    EXPECT_EQ(0, receiver.Wait());
    EXPECT_TRUE(RunShell("cmp /tmp/data /tmp/copy").Succeeded()) << "to " << address;
}

// Segments larger than the link's frames, whose checksums nobody has filled in.
TEST_P(BridgeWay, BulkDataArrivesWholeEverywhere) {
    Start();
    Must("head -c 20000000 /dev/urandom > /tmp/data");
    Transfer(&guest, &outside, "10.9.0.1");
    Transfer(&outside, &guest, "10.9.0.2");
    Transfer(nullptr, &outside, "10.9.0.1");
    if (HostTakesPart()) {
        Transfer(&guest, nullptr, "10.9.0.3");
        Transfer(nullptr, &guest, "10.9.0.2");
    }
}

struct Crossing {
    const char *what;
    const Machine *sender;  // null for the host
    TestFrame frame;
    bool guest;    // whether it arrives there,
    bool outside;  // and there,
    bool host;     // and with the host, by way of its adapter; not asked where the host does not take part
};

TEST_P(BridgeWay, FramesReachThoseTheyAreForAndNobodyElse) {
    Start();
    FrameEar guestEar(&guest, "g0");
    FrameEar outsideEar(&outside, "o0");
    FrameEar hostEar(nullptr, "eth1");
    const auto send = [this](const Machine *sender, const TestFrame &frame) {
        SendFrame(sender, sender == nullptr ? "eth1" : sender == &guest ? "g0" : "o0", frame.Bytes());
    };
    // So that everybody is known.
    send(&outside, {EVERYBODY, THIRD, {}, "third"});
    send(&outside, {EVERYBODY, OUTSIDE, {}, "outside"});
    send(&guest, {EVERYBODY, GUEST, {}, "guest"});
    ASSERT_TRUE(guestEar.HearUntil("outside") && outsideEar.HearUntil("guest")) << bridge;

    const Crossing crossings[] = {
        {"broadcast", &guest, {EVERYBODY, GUEST, {}, "a1"}, false, true, true},
        {"to outside", &guest, {OUTSIDE, GUEST, {}, "a2"}, false, true, false},
        {"to the host", &guest, {HOST, GUEST, {}, "a3"}, false, false, true},
        {"a guest's VLAN", &guest, {OUTSIDE, GUEST, {5}, "a4"}, false, true, false},
        {"a VLAN of the host's address", &guest, {HOST, GUEST, {5}, "a5"}, false, false, false},
        {"a VLAN hidden in a tag", &guest, {EVERYBODY, GUEST, {0, 5}, "a6"}, false, false, false},
        {"spanning tree", &guest, {"01:80:c2:00:00:00", GUEST, {}, "a7"}, false, false, false},
        {"discovery", &guest, {"01:00:0c:cc:cc:cc", GUEST, {}, "a8"}, false, false, false},
        {"the host's address taken", &guest, {EVERYBODY, HOST, {}, "a9"}, false, false, false},

        {"broadcast", &outside, {EVERYBODY, OUTSIDE, {}, "b1"}, true, false, true},
        {"to a guest", &outside, {GUEST, OUTSIDE, {}, "b2"}, true, false, true},
        {"a guest's VLAN", &outside, {GUEST, OUTSIDE, {5}, "b3"}, true, false, true},
        {"to the host", &outside, {HOST, OUTSIDE, {}, "b4"}, false, false, true},
        {"a VLAN of the host's address", &outside, {HOST, OUTSIDE, {5}, "b5"}, false, false, true},
        {"to a third machine", &outside, {THIRD, OUTSIDE, {}, "b6"}, false, false, true},
        {"a VLAN hidden in a tag", &outside, {EVERYBODY, OUTSIDE, {0, 5}, "b7"}, false, false, true},
        {"spanning tree", &outside, {"01:80:c2:00:00:00", OUTSIDE, {}, "b8"}, false, false, true},

        {"broadcast", nullptr, {EVERYBODY, HOST, {}, "c1"}, HostTakesPart(), true, false},
        {"to outside", nullptr, {OUTSIDE, HOST, {}, "c2"}, false, true, false},
        {"to a guest", nullptr, {GUEST, HOST, {}, "c3"}, HostTakesPart(), !HostTakesPart(), false},
        {"a VLAN", nullptr, {EVERYBODY, HOST, {5}, "c4"}, false, true, false},
    };
    for (const Crossing &crossing : crossings) {
        send(crossing.sender, crossing.frame);
    }
    send(&guest, {EVERYBODY, GUEST, {}, "end of guest"});
    send(&outside, {EVERYBODY, OUTSIDE, {}, "end of outside"});
    // What arrives after these has overtaken nothing: frames keep their order.
    EXPECT_TRUE(guestEar.HearUntil("end of outside") && outsideEar.HearUntil("end of guest") &&
                hostEar.HearUntil("end of outside"));
    EXPECT_TRUE(!HostTakesPart() || hostEar.HearUntil("end of guest"));
    for (const Crossing &crossing : crossings) {
        const std::string &text = crossing.frame.text;
        EXPECT_EQ(crossing.guest, guestEar.HasHeard(text)) << text << " at the guest: " << crossing.what;
        EXPECT_EQ(crossing.outside, outsideEar.HasHeard(text)) << text << " outside: " << crossing.what;
        if (HostTakesPart() || crossing.sender != &guest) {
            EXPECT_EQ(crossing.host, hostEar.HasHeard(text)) << text << " at the host: " << crossing.what;
        }
    }
}

// As often as one likes: a guest that claims the address of a machine outside cuts nobody off from it. That
// holds also where frames that come back have to be told, with a second adapter.
TEST_P(BridgeWay, ClaimedAddressDoesNotSilenceItsOwner) {
    Machine elsewhere("elsewhere");
    elsewhere.ConnectToHost("eth2", "e0");
    Start();
    Machine liar("liar");
    liar.ConnectToBridge("zelan-sw0", "l0");
    EXPECT_TRUE(outside.Run("ping -c 1 -W 5 10.9.0.2").Succeeded());
    for (int i = 0; i < 3; i++) {
        SendFrame(&liar, "l0", TestFrame{EVERYBODY, OUTSIDE, {}, "lie"}.Bytes());
        EXPECT_TRUE(outside.Run("ping -c 1 -W 2 10.9.0.2").Succeeded());
        if (HostTakesPart()) {
            SendFrame(&liar, "l0", TestFrame{EVERYBODY, OUTSIDE, {}, "lie"}.Bytes());
            EXPECT_TRUE(RunShell("ping -c 1 -W 2 10.9.0.1").Succeeded()) << "from the host";
        }
    }
}

TEST_P(BridgeWay, AdapterMayChangeAndNothingIsLeftOfAKilledDaemon) {
    Start();
    EXPECT_TRUE(guest.Run("ping -c 1 -W 5 10.9.0.1").Succeeded()) << bridge;
    Must(
        "ip link set eth1 down && ip link set eth1 address 02:00:00:00:00:02 mtu 9000 && ip link set eth1 "
        "up");
    Must("ip -n outside link set o0 mtu 9000 && ip -n guest link set g0 mtu 9000");
    Must("ip link set guest-g0 mtu 9000");
    EXPECT_TRUE(
        WaitUntil([] { return RunShell("ip link show zelan-b0-0 | grep -q 'mtu 9000'").Succeeded(); }));
    guest.Run("ip neigh flush all");
    EXPECT_TRUE(guest.Run("ping -c 1 -W 5 -s 8900 -M do 10.9.0.1").Succeeded());
    EXPECT_EQ(HostTakesPart(), guest.Run("ping -c 1 -W 2 10.9.0.3").Succeeded());
    EXPECT_TRUE(RunShell("ping -c 1 -W 5 10.9.0.1").Succeeded());
    KillDaemon(bridge);
    EXPECT_TRUE(WaitUntil([] {
        return RunShell(
                   "! pgrep -x 'zelan-bridge|zelan-copy' && ! ip link show zelan-b0-0 && "
                   "! tc filter show dev eth1 ingress | grep zelan && "
                   "! tc filter show dev eth1 egress | grep zelan && "
                   "ip -d link show eth1 | grep -q 'promiscuity 0'")
            .Succeeded();
    })) << RunShell("ps -e; ip -d link").output;
    EXPECT_TRUE(RunShell("ping -c 1 -W 5 10.9.0.1").Succeeded()) << "the host's own";
    bridge = StartBridge();
    EXPECT_TRUE(guest.Run("ping -c 1 -W 5 10.9.0.1").Succeeded()) << bridge;
}

TEST_P(BridgeWay, TwoAdaptersOnOneWireMakeNoLoop) {
    outside.ConnectToHost("eth2", "w2");
    ASSERT_TRUE(
        outside
            .Run("ip link add name lan type bridge && ip link set lan up && ip address flush dev o0 && "
                 "ip link set o0 master lan && ip link set w2 master lan && "
                 "ip address add 10.9.0.1/24 dev lan")
            .Succeeded());
    Start();
    FrameEar ear(&guest, "g0");
    const auto received = [this] {
        return std::stol(guest.Run("cat /sys/class/net/g0/statistics/rx_packets").output);
    };
    const long before = received();
    // Requests for an address that nobody has are broadcast.
    guest.Run("ping -c 3 -i 0.2 -W 1 10.9.0.77");
    const CommandResult ping = guest.Run("ping -c 5 -i 0.2 -W 5 10.9.0.1");
    EXPECT_TRUE(ping.Succeeded()) << ping;
    EXPECT_EQ(std::string::npos, ping.output.find("DUP")) << ping;
    SendFrame(&guest, "g0", TestFrame{EVERYBODY, GUEST, {}, "mine"}.Bytes());
    SendFrame(&outside, "lan", TestFrame{EVERYBODY, OUTSIDE, {}, "end"}.Bytes());
    EXPECT_TRUE(ear.HearUntil("end"));
    EXPECT_FALSE(ear.HasHeard("mine")) << "a guest's own frame comes back to it";
    EXPECT_LT(received() - before, 100) << "frames go round";
}

TEST(BridgeCopies, TakePlaceInAProcessWithoutPrivilegesThatComesBackAndEndsWithItsKeeper) {
    ASSERT_TRUE(RefuseCall(SYS_bpf, EPERM));
    Machine outside("outside");
    outside.ConnectToHost("eth1", "o0", "10.9.0.1/24");
    const DaemonStart bridge = StartBridge();
    Machine guest("guest");
    guest.ConnectToBridge("zelan-sw0", "g0", "10.9.0.2/24");
    EXPECT_TRUE(guest.Run("ping -c 1 -W 5 10.9.0.1").Succeeded()) << bridge;
    EXPECT_EQ(
        RunShell("id -u harbrel | tr '\\n' ' '").output + "0000000000000000 1 ",
        RunShell("awk '/^(Uid|CapPrm|NoNewPrivs):/ {printf \"%s \", $2}' /proc/$(pgrep -x zelan-copy)/status")
            .output);
    Must("pkill -KILL -x zelan-copy");
    EXPECT_TRUE(WaitUntil([&] { return guest.Run("ping -c 1 -W 1 10.9.0.1").Succeeded(); })) << bridge;
    Must("pkill -STOP -x zelan-copy");  // so that it cannot end by itself
    KillDaemon(bridge);
    EXPECT_TRUE(WaitUntil([] { return !RunShell("pgrep -x zelan-copy").Succeeded(); }));
}

}  // namespace
