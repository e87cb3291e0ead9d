// A network's DHCP server, and real clients of it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <string>

#include "tests/support/command.h"
#include "tests/support/daemonStart.h"
#include "tests/support/netns.h"

namespace {

constexpr const char *FOLDER = "/etc/orvane/zelan8/dhcpd";

// As the library writes it, with a range of five addresses.
constexpr const char *CONFIGURATION = R"(
allow unknown-clients;
default-lease-time 1800;                # default is 30 minutes
max-lease-time 7200;                    # default is 2 hours

subnet 192.168.10.0 netmask 255.255.255.0 {
	range 192.168.10.130 192.168.10.134;            # default allows up to 125 VM's
	option broadcast-address 192.168.10.255;
	option domain-name-servers 192.168.10.2;
	option domain-name localdomain;
	default-lease-time 1800;                # default is 30 minutes
	max-lease-time 7200;                    # default is 2 hours
	option routers 192.168.10.2;
}
host 192.168.10.50 {
	hardware ethernet 02:00:00:01:02:03;
	fixed-address 192.168.10.50;
	option domain-name-servers 192.168.10.3;
	option domain-name localdomain;
	option routers 192.168.10.2;
}
)";

DaemonStart StartDhcp(const std::string &configuration) {
    const std::string folder = FOLDER;
    Must("mkdir -p " + folder + " && touch " + folder + "/dhcpd.leases");
    WriteFileText(folder + "/dhcpd.conf", configuration);
    const std::string pidFile = "/var/run/zelan-dhcpd-zelan8.pid";
    return StartDaemonWith("zelan-dhcpd", pidFile,
                           {"-s", "{W}", "-cf", folder + "/dhcpd.conf", "-lf", folder + "/dhcpd.leases",
                            "-pf", pidFile, "zelan8"});
}

// What the client was told last, as udhcpc hands it to its script.
using Lease = std::map<std::string, std::string>;

Lease LeaseIn(const std::string &path) {
    Lease lease;
    const std::string text = ReadFileText(path);
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = text.find('\n', begin);
        const size_t sign = text.find('=', begin);
        if (sign < end) {
            lease[text.substr(begin, sign - begin)] = text.substr(sign + 1, end - sign - 1);
        }
        begin = end + 1;
    }
    return lease;
}

constexpr const char *LEASE_FILE = "/tmp/lease";

void WriteClientScript() {
    WriteFileText("/tmp/client", std::string("#!/bin/sh\n[ \"$1\" = deconfig ] && exit 0\n"
                                             "ip address replace $ip/$mask dev $interface\n"
                                             "(echo event=$1; env) > /tmp/lease.new\n"
                                             "mv /tmp/lease.new ") +
                                     LEASE_FILE + "\n");
    Must("chmod +x /tmp/client");
}

std::vector<std::string> ClientCommand(const Machine &guest) {
    return guest.Inside({"udhcpc", "-i", "eth0", "-f", "-t", "20", "-T", "1", "-s", "/tmp/client"});
}

TEST(Dhcp, ClientsGetWhatTheConfigurationSays) {
    const DaemonStart start = StartDhcp(CONFIGURATION);
    ASSERT_TRUE(start.CameUp()) << start;
    WriteClientScript();
    const struct {
        const char *mac;
        const char *firstAddress;
        const char *lastAddress;
        const char *nameServer;
    } cases[] = {{"02:00:00:0a:0b:0c", "192.168.10.130", "192.168.10.134", "192.168.10.2"},
                 {"02:00:00:01:02:03", "192.168.10.50", "192.168.10.50", "192.168.10.3"}};
    for (const auto &row : cases) {
        unlink(LEASE_FILE);
        Machine guest("zelan-g");
        guest.ConnectToBridge("zelan-sw8", "eth0");
        Must(std::string("ip -n zelan-g link set eth0 address ") + row.mac);
        BackgroundCommand client(ClientCommand(guest));
        ASSERT_TRUE(WaitUntil([] { return access(LEASE_FILE, F_OK) == 0; })) << row.mac << start;
        Lease lease = LeaseIn(LEASE_FILE);
        EXPECT_GE(lease["ip"], row.firstAddress) << row.mac;
        EXPECT_LE(lease["ip"], row.lastAddress) << row.mac;
        EXPECT_EQ("192.168.10.2", lease["router"]) << row.mac;
        EXPECT_EQ(row.nameServer, lease["dns"]) << row.mac;
        EXPECT_EQ("localdomain", lease["domain"]) << row.mac;
        EXPECT_EQ("1800", lease["lease"]) << row.mac;
    }
}

TEST(Dhcp, LeaseIsRenewedAndSurvivesTheServersRestart) {
    DaemonStart start = StartDhcp(CONFIGURATION);
    ASSERT_TRUE(start.CameUp()) << start;
    WriteClientScript();
    Machine guest("zelan-g");
    guest.ConnectToBridge("zelan-sw8", "eth0");
    BackgroundCommand client(ClientCommand(guest));
    ASSERT_TRUE(WaitUntil([] { return LeaseIn(LEASE_FILE)["event"] == "bound"; })) << start;
    const std::string address = LeaseIn(LEASE_FILE)["ip"];
    for (const char *server : {"the first", "another"}) {
        unlink(LEASE_FILE);
        kill(client.pid(), SIGUSR1);
        ASSERT_TRUE(WaitUntil([] { return LeaseIn(LEASE_FILE)["event"] == "renew"; })) << server << start;
        EXPECT_EQ(address, LeaseIn(LEASE_FILE)["ip"]) << server;
        KillDaemon(start);
        start = StartDhcp(CONFIGURATION);
        ASSERT_TRUE(start.CameUp()) << start;
    }
}

bool NothingIsLeft() {
    return RunShell("ip -br link | grep -q '^zelan'").status == 1 &&
           RunShell("ip netns list-id | grep -q nsid").status == 1 &&
           RunShell("ps -e -o comm= | grep -qE '^(zelan|dhcpd)'").status == 1;
}

TEST(Dhcp, PidFileNamesTheServerAndItsDeathLeavesNothing) {
    const DaemonStart start = StartDhcp(CONFIGURATION);
    ASSERT_TRUE(start.CameUp()) << start;
    EXPECT_EQ("dhcpd\n", ReadFileText("/proc/" + std::to_string(start.pid) + "/comm"));
    EXPECT_FALSE(RunShell("ip -4 -br address | grep -q 192.168.10").Succeeded()) << "an address on the host";
    EXPECT_TRUE(RunShell("ip netns list-id | grep -q nsid").Succeeded()) << "no namespace to look for";
    KillDaemon(start);
    EXPECT_TRUE(WaitUntil(NothingIsLeft)) << RunShell("ip -br link; ps -e -o pid,comm").output;
}

TEST(Dhcp, RefusedConfigurationIsNoStartAndTheServersWordsAreInTheLog) {
    const struct {
        const char *condition;
        std::string configuration;
        const char *words;
    } cases[] = {
        {"a line that dhcpd does not know", std::string(CONFIGURATION) + "foo bar;\n", "semicolon expected"},
        {"no subnet", "default-lease-time 1800;\n", "No subnet declaration for zelan8"},
        {"no room for the server",
         "subnet 192.168.10.0 netmask 255.255.255.248 { range 192.168.10.3 192.168.10.6; }\n",
         "no address of the subnet is left"},
    };
    for (const auto &row : cases) {
        unlink("/var/log/zelan-dhcpd.log");
        const DaemonStart start = StartDhcp(row.configuration);
        EXPECT_EQ("", start.report) << row.condition;
        EXPECT_NE(0, start.status) << row.condition;
        EXPECT_NE(std::string::npos, start.Log().find(row.words)) << row.condition << start;
        EXPECT_NE(0, access(start.pidFile.c_str(), F_OK)) << row.condition;
    }
    EXPECT_TRUE(WaitUntil(NothingIsLeft)) << RunShell("ip -br link; ps -e -o pid,comm").output;
}

TEST(Dhcp, MissingServerIsNamed) {
    Must(
        "for file in /usr/sbin/dhcpd /usr/local/sbin/dhcpd /usr/bin/dhcpd; do"
        " [ ! -e $file ] || mount --bind /dev/null $file; done");
    const DaemonStart start = StartDhcp(CONFIGURATION);
    EXPECT_EQ("", start.report);
    EXPECT_NE(std::string::npos, start.Log().find("ISC dhcpd is not installed")) << start;
}

TEST(Dhcp, StalePidFileDoesNotPreventAStart) {
    BackgroundCommand stranger({"sleep", "600"});
    WriteFileText("/var/run/zelan-dhcpd-zelan8.pid", std::to_string(stranger.pid()) + "\n");
    const DaemonStart start = StartDhcp(CONFIGURATION);
    EXPECT_TRUE(start.CameUp()) << start;
    EXPECT_NE(stranger.pid(), start.pid);
    const DaemonStart second = StartDhcp(CONFIGURATION);
    EXPECT_EQ("", second.report) << "two servers on one network";
    EXPECT_NE(std::string::npos, second.Log().find("running already")) << second;
}

}  // namespace
