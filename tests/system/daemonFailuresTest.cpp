// Every system call that a daemon makes until it is up, failing once: what must be had fails the start with a
// line in the log and leaves nothing; what need not be had costs no more than its line.
#include <gtest/gtest.h>
#include <unistd.h>

#include <iterator>
#include <regex>
#include <sstream>

#include "tests/support/daemonStart.h"

namespace {

// What each of them tells.
constexpr char ALL_TELL[] =
    R"(+cannot give capabilities up | +zelan-watch does not answer | -/dev/null | -/run/zelan |
-cannot reach zelan-watch | -cannot write the PID file /run/xN.pid | -fork | -netlink socket |
-pidfd_open | -the status descriptor 9 is not open | -zelan-watch does not answer)";

struct Start {
    const char *program;
    const char *arguments;  // beyond the contract's, with N for the network
    // What is told, behind - by a start that fails and + by one that does not; N for the network, and without
    // the system's reason.
    const char *told;
};

// For strace; with a + at the end all that follow fail as well.
constexpr char CALLS[] =
    "openat bind listen connect setsockopt sendto sendto+ sendmsg poll read ioctl unshare setns "
    "pidfd_open fcntl flock ?newfstatat,?fstat fsync ?rename,?renameat clone pipe2 memfd_create "
    "?mkdir,?mkdirat fchown capset getrandom bpf inotify_init1 inotify_add_watch capget";

class DaemonFailures : public testing::TestWithParam<Start> {
  protected:
    // Starts with the Nth call of a kind failing; false when there are not as many.
    bool StartWithout(const std::string &call, int number);

    int starts_ = 0;
};

// Adds to /tmp/told what such a start tells.
bool DaemonFailures::StartWithout(const std::string &call, int number) {
    const std::string program = GetParam().program;
    const std::string kind = call.substr(0, call.find('+'));
    // One after another, so that nothing of the last one is found.
    const std::string network = std::to_string(100 + starts_++ % 150);
    std::istringstream words(std::regex_replace(GetParam().arguments, std::regex("N\\b"), network));
    const std::string pidFile = "/run/x" + network + ".pid";
    std::vector<std::string> arguments = {"-s", "{W}", program == "zelan-dhcpd" ? "-pf" : "-d", pidFile};
    arguments.insert(arguments.end(), std::istream_iterator<std::string>(words), {});
    unlink(("/var/log/" + program + ".log").c_str());
    const DaemonStart start = StartDaemonWith(
        program, pidFile, arguments,
        STRACE + ("-o /tmp/trace -e trace=" + kind + " -e inject=" + kind +
                  ":error=ENOMEM:when=" + std::to_string(number) + (kind == call ? "" : "+")));
    const bool hit = RunShell("grep -q '(INJECTED)' /tmp/trace").Succeeded();
    EXPECT_TRUE(start.CameUp() || (hit && start.status != 0 && start.Log().starts_with(program + " - ") &&
                                   access(pidFile.c_str(), F_OK) != 0))
        << call << " " << number << " " << start << ReadFileText("/tmp/trace");
    if (hit) {
        Must("sed -n 's/^" + program + " - /" + (start.CameUp() ? "+" : "-") + "/p' " + start.logFile +
             " | sed 's/: .*//; s/" + network + "/N/g' >> /tmp/told");
    }
    if (start.CameUp()) {
        KillDaemon(start);
    }
    return hit;
}

TEST_P(DaemonFailures, OfEachCallAreToldAndLeaveNothing) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's own calls would fail";
#endif
    Must(
        "for n in $(seq 100 250); do mknod /dev/zelan$n c 119 $n; done; touch /etc/leases; "
        "ip link add eth1 type veth peer name eth2");
    WriteFileText("/etc/nat.conf",
                  "[host]\nip = 10.1.2.2\nnetmask = 255.255.255.0\n[incomingtcp]\n8888 = 10.1.2.50:80\n");
    WriteFileText("/etc/dhcpd.conf", "subnet 10.1.2.0 netmask 255.255.255.128 { range 10.1.2.9; }\n");
    // So that it need not be started.
    const DaemonStart holdsTheWatcher = MustComeUp(StartNetifup(8));
    std::istringstream calls(CALLS);
    for (std::string call; calls >> call;) {
        for (int number = 1; StartWithout(call, number); number++) {
        }
    }
    WriteFileText("/tmp/expected", std::string(ALL_TELL) + " | " + GetParam().told);
    EXPECT_EQ(RunShell(R"(tr '\n' ' ' < /tmp/expected | sed 's/ *| */\n/g; s/$/\n/' | sort -u)").output,
              RunShell("grep -vE '^.(link|this kernel (lacks|keeps)) ' /tmp/told | sort -u").output)
        << "but for zelan-detect's work and what a kernel has";
    KillDaemon(holdsTheWatcher);
    EXPECT_TRUE(WaitUntil(NothingIsLeft)) << LeftOver();
}

INSTANTIATE_TEST_SUITE_P(
    Of, DaemonFailures,
    testing::Values(
        Start{
            "zelan-netifup", "/dev/zelanN zelanN",
            R"(-/dev/zelanN | -/run/zelan/daemon-netifup-N | -cannot bring zelan-ifN up | -cannot bring zelan-swN up |
-cannot find the interfaces zelan-ifN and zelanN | -cannot hold /run/zelan/host-table |
-cannot keep IPv6 off zelan-ifN | -cannot keep IPv6 off zelan-swN | -cannot keep IPv6 off zelanN |
-cannot make the interfaces zelan-ifN and zelanN | -cannot make the switch zelan-swN |
-cannot watch the interface | -lock on /run/zelan/host-table.lock | -nftables refuses the host's rules)"},
        Start{"zelan-detect", "",
              R"(-/run/zelan/daemon-detect | -cannot read the state of the network | -inotify)"},
        Start{"zelan-bridge", "-n N -ieth1",
              R"(+cannot attach eth1 to the switch | +cannot keep IPv6 off zelan-bN-0 |
+cannot keep the host's address at its port | +cannot make a TAP for eth1 |
+cannot make eth1 promiscuous | +cannot make the switch zelan-swN | +eth1 is connected to network N |
+frames of eth1 are copied, since the kernel does not take the programs for it | +getrandom |
-/run/zelan/daemon-bridge-N | -cannot bring zelan-swN up |
-cannot keep IPv6 off zelan-swN | -cannot make the switch zelan-swN | -eth1 is connected to network N)"},
        Start{"zelan-natd", "-m /run/zelan-natd-N.mac -c /etc/nat.conf",
              R"(+TCP port 8888 is not forwarded to 10.1.2.50 |
+cannot keep the gateway's MAC address in /run/zelan-natd-N.mac | +netlink socket | -/etc/nat.conf |
-/proc/self/ns/net | -/run/zelan/daemon-nat-N | -/run/zelan/nat-share-N |
-cannot add the router's default route | -cannot bring an interface up | -cannot bring zelan-ntN up |
-cannot bring zelan-swN up | -cannot bring zelan-upN up | -cannot enter a network namespace |
-cannot find the interfaces zelan-ntN and guests | -cannot find the interfaces zelan-upN and uplink |
-cannot give an interface its address | -cannot hold /run/zelan/host-table | -cannot hold /run/zelan/nat |
-cannot hold /run/zelan/nat-share-N | -cannot keep IPv6 off all | -cannot keep IPv6 off default |
-cannot keep IPv6 off zelan-ntN | -cannot keep IPv6 off zelan-swN | -cannot keep IPv6 off zelan-upN |
-cannot let the host forward what guests send | -cannot let the host use its forwards |
-cannot let the router forward | -cannot list the host's adapters | -cannot make a network namespace |
-cannot make the interfaces zelan-ntN and guests | -cannot make the interfaces zelan-upN and uplink |
-cannot make the switch zelan-swN | -cannot return to the host's network namespace |
-cannot serve DNS at 10.1.2.2 | -cannot set the gateway's MAC address |
-lock on /run/zelan/host-table.lock | -nftables refuses the host's rules |
-nftables refuses the router's rules | -no subnet is free for the uplink of network N)"},
        Start{"zelan-dhcpd", "-cf /etc/dhcpd.conf -lf /etc/leases zelanN",
              R"(+cannot read /etc/passwd | -/etc/dhcpd.conf | -/etc/leases | -/proc/self/ns/net |
-/proc/sys/net/ipv4/ip_unprivileged_port_start | -/run/zelan/daemon-dhcp-N | -cannot bring zelan-dhN up |
-cannot bring zelan-swN up | -cannot bring zelanN up | -cannot enter a network namespace |
-cannot find the interfaces zelan-dhN and zelanN | -cannot keep IPv6 off all |
-cannot keep IPv6 off default | -cannot keep IPv6 off zelan-dhN | -cannot keep IPv6 off zelan-swN |
-cannot make a network namespace | -cannot make the interfaces zelan-dhN and zelanN |
-cannot make the switch zelan-swN | -cannot return to the host's network namespace |
-cannot take the address 10.1.2.126 | -configuration of dnsmasq |
-dnsmasq does not serve zelanN with /etc/dhcpd.conf | -pipe)"}),
    [](const auto &row) { return std::string(row.param.program).substr(6); });

}  // namespace
