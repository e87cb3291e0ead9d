// A network's DHCP server, and real clients of it.
#include <gmock/gmock.h>
#include <unistd.h>

#include <csignal>

#include "tests/support/daemonStart.h"

namespace {

const std::string FOLDER = "/etc/orvane/zelan8/dhcpd";

// As the library writes it, with a range of five addresses.
constexpr const char *CONFIGURATION = R"(
allow unknown-clients;
subnet 192.168.10.0 netmask 255.255.255.0 {
	range 192.168.10.130 192.168.10.134;
	option broadcast-address 192.168.10.255;
	option domain-name-servers 192.168.10.2;
	option domain-name localdomain;
	default-lease-time 1800;
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
    Must("mkdir -p " + FOLDER + " && touch " + FOLDER + "/dhcpd.leases");
    WriteFileText(FOLDER + "/dhcpd.conf", configuration);
    const std::string pidFile = "/var/run/zelan-dhcpd-zelan8.pid";
    return StartDaemonWith("zelan-dhcpd", pidFile,
                           {"-s", "{W}", "-cf", FOLDER + "/dhcpd.conf", "-lf", FOLDER + "/dhcpd.leases",
                            "-pf", pidFile, "zelan8"});
}

// What the client was told last: event, address, router, name server, domain and duration.
std::string Lease() {
    return ReadFileText("/tmp/lease");
}

TEST(Dhcp, ClientsKeepWhatTheConfigurationSaysOverRenewalsAndRestarts) {
    DaemonStart start = MustComeUp(StartDhcp(CONFIGURATION));
    WriteFileText("/tmp/client",
                  "#!/bin/sh\n[ \"$1\" = deconfig ] && exit 0\nip address replace $ip/$mask dev $interface\n"
                  "echo $1 $ip $router $dns $domain $lease > /tmp/lease.new\nmv /tmp/lease.new /tmp/lease\n");
    Must("chmod +x /tmp/client");
    const std::pair<const char *, const char *> cases[] = {
        {"02:00:00:0a:0b:0c", "bound 192.168.10.13[0-4] 192.168.10.2 192.168.10.2 localdomain 1800\n"},
        {"02:00:00:01:02:03", "bound 192.168.10.50 192.168.10.2 192.168.10.3 localdomain 1800\n"}};
    for (const auto &[mac, lease] : cases) {
        unlink("/tmp/lease");
        Machine guest(std::string("zelan-") + mac[16]);
        guest.ConnectToBridge("zelan-sw8", "eth0");
        Must("ip -n " + guest.name() + " link set eth0 address " + mac);
        BackgroundCommand client(
            guest.Inside({"udhcpc", "-i", "eth0", "-f", "-t", "20", "-T", "1", "-s", "/tmp/client"}));
        ASSERT_TRUE(WaitUntil([] { return !Lease().empty(); })) << mac << start;
        EXPECT_THAT(Lease(), testing::MatchesRegex(lease)) << mac;
        const std::string renewed = "renew" + Lease().substr(5, Lease().rfind(' ') - 5);
        for (const char *server : {"the first", "another"}) {
            unlink("/tmp/lease");
            kill(client.pid(), SIGUSR1);
            EXPECT_TRUE(WaitUntil([&] { return Lease().starts_with(renewed); }))
                << server << Lease() << start;
            KillDaemon(start);
            start = MustComeUp(StartDhcp(CONFIGURATION));
        }
    }
}

TEST(Dhcp, RefusedStartLeavesItsReasonInTheLogAndNothingElse) {
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
        {"a hidden dhcpd", CONFIGURATION, "ISC dhcpd is not installed: there is no /usr/sbin/dhcpd\n"},
    };
    for (const auto &row : cases) {
        unlink("/var/log/zelan-dhcpd.log");
        if (row.configuration == CONFIGURATION) {
            Must("mount --bind /dev/null /usr/sbin/dhcpd");
        }
        const DaemonStart start = StartDhcp(row.configuration);
        EXPECT_EQ("", start.report) << row.condition;
        EXPECT_NE(0, start.status) << row.condition;
        EXPECT_NE(std::string::npos, start.Log().find(row.words)) << row.condition << start;
        EXPECT_NE(0, access(start.pidFile.c_str(), F_OK)) << row.condition;
    }
    Must("umount /usr/sbin/dhcpd");
    EXPECT_TRUE(WaitUntil(NothingIsLeft)) << LeftOver();
}

TEST(Dhcp, PidFileNamesTheOneServerAndItsDeathLeavesNothing) {
    BackgroundCommand stranger({"sleep", "600"});
    WriteFileText("/var/run/zelan-dhcpd-zelan8.pid", std::to_string(stranger.pid()) + "\n");
    const DaemonStart start = MustComeUp(StartDhcp(CONFIGURATION));
    EXPECT_EQ("dhcpd\n", ReadFileText("/proc/" + std::to_string(start.pid) + "/comm"));
    EXPECT_FALSE(RunShell("ip -4 -br address | grep -q 192.168.10").Succeeded()) << "an address on the host";
    EXPECT_TRUE(LeftOver().find("nsid") != std::string::npos) << "no namespace to look for";
    const DaemonStart second = StartDhcp(CONFIGURATION);
    EXPECT_EQ("", second.report) << "two servers on one network";
    EXPECT_NE(std::string::npos, second.Log().find("another daemon serves this network")) << second;
    KillDaemon(start);
    EXPECT_TRUE(WaitUntil(NothingIsLeft)) << LeftOver();
}

}  // namespace
