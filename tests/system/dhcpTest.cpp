// A network's DHCP server, whichever program it is, and real clients of it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/nsfs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "lib/misc/owners.h"
#include "tests/support/daemonStart.h"
#include "tests/support/frames.h"

namespace {

const std::string FOLDER = "/etc/orvane/zelan8/dhcpd";
const std::string LEASES = FOLDER + "/dhcpd.leases";

// As the library writes it, with a range of five addresses.
const std::string CONFIGURATION = R"(
allow unknown-clients;
subnet 192.168.10.0 netmask 255.255.255.0 {
	range 192.168.10.130 192.168.10.134;
	option broadcast-address 192.168.10.255;
	option domain-name-servers 192.168.10.2;
	option domain-name localdomain;
	default-lease-time 1800;
	max-lease-time 7200;
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

// A statement that dnsmasq has no words for and that changes nothing.
const std::string ONLY_FOR_DHCPD = "class \"none\" { }\n";

// The same in another file.
const std::string INCLUDED = "/etc/dhcp/more";  // where its AppArmor profile lets dhcpd read
const std::string INCLUDING = "include \"" + INCLUDED + "\";\n";

DaemonStart StartDhcp(const std::string &configuration) {
    // Where no other user can follow.
    Must("mkdir -p " + FOLDER + " && touch " + LEASES + " && chmod 0700 /etc/orvane");
    WriteFileText(FOLDER + "/dhcpd.conf", configuration);
    const std::string pidFile = "/var/run/zelan-dhcpd-zelan8.pid";
    return StartDaemonWith(
        "zelan-dhcpd", pidFile,
        {"-s", "{W}", "-cf", FOLDER + "/dhcpd.conf", "-lf", LEASES, "-pf", pidFile, "zelan8"});
}

std::string ServerOf(const DaemonStart &start) {
    return ReadFileText("/proc/" + std::to_string(start.pid) + "/comm");
}

// Clients run this and leave what they were told last in /tmp/lease.
void WriteClientScript(const std::string &report) {
    WriteFileText(
        "/tmp/client",
        "#!/bin/sh\n[ \"$1\" = deconfig ] && exit 0\nip address replace $ip/$mask dev $interface\n" + report +
            " > /tmp/lease.new\nmv /tmp/lease.new /tmp/lease\n");
    Must("chmod +x /tmp/client");
    unlink("/tmp/lease");
}

std::string Lease() {
    return ReadFileText("/tmp/lease");
}

class Guest : public Machine {
  public:
    explicit Guest(const std::string &mac) : Machine(std::string("zelan-") + mac[16]) {
        ConnectToBridge("zelan-sw8", "eth0");
        Must("ip -n " + name() + " link set eth0 address " + mac);
    }
    // The words of a DHCP client that stays, or with -q ends with its first lease.
    std::vector<std::string> Client(const std::vector<std::string> &more = {}) const {
        std::vector<std::string> words = {"udhcpc", "-i", "eth0", "-f", "-t",
                                          "20",     "-T", "1",    "-s", "/tmp/client"};
        words.insert(words.end(), more.begin(), more.end());
        return Inside(words);
    }
};

TEST(Dhcp, ClientsKeepTheirLeasesOverRenewalsRestartsAndChangesOfServer) {
    Must("mkdir -p /etc/dhcp");
    WriteFileText(INCLUDED, ONLY_FOR_DHCPD);
    DaemonStart start = MustComeUp(StartDhcp(CONFIGURATION));
    const std::pair<const char *, const char *> cases[] = {
        {"02:00:00:0a:0b:0c", "bound 192.168.10.13[0-4] 192.168.10.2 192.168.10.2 localdomain 1800\n"},
        {"02:00:00:01:02:03", "bound 192.168.10.50 192.168.10.2 192.168.10.3 localdomain 1800\n"}};
    for (const auto &[mac, lease] : cases) {
        WriteClientScript("echo $1 $ip $router $dns $domain $lease");
        const Guest guest(mac);
        BackgroundCommand client(guest.Client({"-x", "hostname:guest"}));
        ASSERT_TRUE(WaitUntil([] { return !Lease().empty(); })) << mac << start;
        EXPECT_THAT(Lease(), testing::MatchesRegex(lease)) << mac;
        const std::string renewed = "renew" + Lease().substr(5, Lease().rfind(' ') - 5);
        const std::pair<const char *, std::string> servers[] = {{"dnsmasq\n", CONFIGURATION},
                                                                {"dnsmasq\n", CONFIGURATION},
                                                                {"dhcpd\n", CONFIGURATION + ONLY_FOR_DHCPD},
                                                                {"dhcpd\n", CONFIGURATION + INCLUDING},
                                                                {"dnsmasq\n", CONFIGURATION}};
        for (const auto &[server, configuration] : servers) {
            KillDaemon(start);
            unlink(start.logFile.c_str());
            start = MustComeUp(StartDhcp(configuration));
            EXPECT_EQ(server, ServerOf(start)) << start;
            EXPECT_EQ(
                configuration != CONFIGURATION,
                start.Log().find(": ISC dhcpd serves, as dnsmasq has no words for ") != std::string::npos);
            unlink("/tmp/lease");
            kill(client.pid(), SIGUSR1);
            EXPECT_TRUE(WaitUntil([&] { return Lease().starts_with(renewed); }))
                << server << Lease() << start;
        }
    }
    EXPECT_NE(std::string::npos, ReadFileText(LEASES).find(" guest ")) << ReadFileText(LEASES);
}

// Statements that give each of the options of a line the value that stands first in it.
std::string Options(const std::string &lines) {
    std::istringstream stream(lines);
    std::string text;
    for (std::string line; getline(stream, line);) {
        std::istringstream words(line);
        std::string value, name;
        for (words >> value; words >> name;) {
            text.append("option ").append(name).append(" ").append(value).append(";\n");
        }
    }
    return text;
}

// All that a client is told, but for the server's choice of an address and the renewal times, which dnsmasq
// always sends.
TEST(Dhcp, BothServersTellClientsTheSame) {
    const std::string rich = R"(# Odd, but legal.
option gates code 201 = array of ip-address; option flagged code 202 = boolean;
option sizes code 203 = array of unsigned integer 16; AUTHORITATIVE;
group { filename "boot/loader"; next-server 192.168.10.9;
  host a { hardware Ethernet 2:0:0:1:2:3; fixed-address 192.168.10.50; option host-name "alpha";
           option routers 192.168.10.3; server-name "srv"; } }
shared-network wire { subnet 192.168.10.0 netmask 255.255.255.0 {
  default-lease-time 0x708; range 192.168.10.134 192.168.10.130; range 192.168.10.140;
  option domain-name-servers 192.168.10.2, 10.0.0.1;option domain-name "x.example"; #}
  option domain-search "a.example", "b.x.example"; option gates 1.2.3.4, 1.2.3.5; option flagged true;
  option sizes 1, 65535; option interface-mtu 1400; option time-offset -3600; option tftp-server-name "1.2.3.4";
  option root-path "10.0.0.1:/srv,vers=3"; option vendor-class-identifier "PXEClient"; option ip-forwarding off;
  option unknown-230 "a,\"b\\c\040"; option unknown-231 0a:0b:c; option bootfile-name "65";
  option static-routes 10.0.0.0 192.168.10.7, 11.0.0.0 192.168.10.8; option netbios-node-type 8; } }
)";
    const std::string addresses = Options(
        "10.9.8.7 time-servers ien116-name-servers log-servers cookie-servers lpr-servers impress-servers "
        "resource-location-servers swap-server router-solicitation-address nis-servers ntp-servers "
        "netbios-name-servers netbios-dd-server font-servers x-display-manager nisplus-servers "
        "mobile-ip-home-agent smtp-server pop-server nntp-server www-server finger-server irc-server "
        "streettalk-server streettalk-directory-assistance-server nds-servers netinfo-server-address "
        "capwap-ac-v4");
    const std::string others =
        Options(R"("x" merit-dump extensions-path nis-domain netbios-scope nisplus-domain
"x" nds-tree-name nds-context uap-servers pcode tcode netinfo-server-tag default-url loader-configfile loader-pathprefix
7 default-ip-ttl default-tcp-ttl boot-size max-dgram-reassembly path-mtu-plateau-table path-mtu-aging-timeout
7 arp-cache-timeout tcp-keepalive-interval loader-reboottime
on non-local-source-routing all-subnets-local perform-mask-discovery mask-supplier router-discovery
on trailer-encapsulation ieee802-3-encapsulation tcp-keepalive-garbage
)") + "option policy-filter 10.9.8.7 10.9.8.6;\n";
    const std::string subnet =
        "subnet 192.168.10.0 netmask 255.255.255.0 { range 192.168.10.130 192.168.10.131; }\n";
    std::vector<std::string> wanted = {"-q", "-x", "hostname:guest", "-x", "0x33:00000e10"};  // for an hour
    for (int code = 2; code < 232; code++) {
        // Those between are the protocol's own.
        if (code < 50 || code > 59) {
            wanted.insert(wanted.end(), {"-O", std::to_string(code)});
        }
    }
    WriteClientScript("env | grep -E '^[a-z0-9_]+=' | grep -vE '^(_|opt5[89])=' | sort");
    DaemonStart start = MustComeUp(StartDhcp(CONFIGURATION));
    const Guest known("02:00:00:01:02:03");
    const Guest unknown("02:00:00:01:02:04");
    for (const std::string &configuration : {addresses + CONFIGURATION, rich, others + subnet}) {
        std::string told[2][2];
        for (int byDhcpd : {0, 1}) {
            KillDaemon(start);
            unlink(LEASES.c_str());
            start = MustComeUp(StartDhcp(configuration + (byDhcpd != 0 ? ONLY_FOR_DHCPD : "")));
            for (const Guest *guest : {&known, &unknown}) {
                unlink("/tmp/lease");
                // dhcpd asks with a ping whether an address is taken.
                Must("ip -n " + known.name() + " address flush dev eth0; ip -n " + unknown.name() +
                     " address flush dev eth0");
                const CommandResult client = RunCommand(guest->Client(wanted));
                EXPECT_TRUE(client.Succeeded()) << client << start;
                told[byDhcpd][guest == &known] =
                    RunShell("sed -E 's/^ip=192.168.10.(13.|140)$/ip=some/' /tmp/lease").output;
            }
        }
        for (int isKnown : {0, 1}) {
            EXPECT_EQ(told[1][isKnown], told[0][isKnown]) << configuration << isKnown;
        }
    }
}

// Starts with another file in the place of these.
DaemonStart StartWithout(const std::string &programs, const std::string &configuration,
                         const std::string &replacement = "/dev/null") {
    unlink("/var/log/zelan-dhcpd.log");
    Must("for f in " + programs + "; do mount --bind " + replacement + " $f; done");
    const DaemonStart start = StartDhcp(configuration);
    Must("for f in " + programs + "; do umount $f; done");
    return start;
}

void ExpectRefused(const DaemonStart &start, const std::string &reason) {
    EXPECT_EQ("", start.report) << reason;
    EXPECT_NE(0, start.status) << reason;
    EXPECT_NE(0, access(start.pidFile.c_str(), F_OK)) << reason;
    EXPECT_THAT(start.Log(), testing::HasSubstr(reason));
}

TEST(Dhcp, RefusedStartLeavesItsReasonInTheLogAndNothingElse) {
    const std::string dnsmasq = "/usr/sbin/dnsmasq", dhcpd = "/usr/sbin/dhcpd",
                      conf = FOLDER + "/dhcpd.conf:";
    ExpectRefused(StartDhcp(CONFIGURATION + "foo bar;\n"), "semicolon expected");
    ExpectRefused(StartDhcp("subnet 10.1.2.0 netmask 255.255.255.248 { range 10.1.2.3 10.1.2.6; }\n"),
                  "no address of the subnet is left");
    ExpectRefused(
        StartWithout(dhcpd, CONFIGURATION + ONLY_FOR_DHCPD),
        conf + "19: dnsmasq has no words for 'class \"none\"': install the package isc-dhcp-server");
    ExpectRefused(StartWithout(dhcpd + " " + dnsmasq, CONFIGURATION), "install the package dnsmasq-base");
    WriteFileText("/usr/broken", "#!/no/such/program\n");
    Must("chmod +x /usr/broken");
    ExpectRefused(StartWithout(dnsmasq, CONFIGURATION, "/usr/broken"),
                  "zelan-dhcpd - /usr/sbin/dnsmasq: No such file");
    WriteFileText(LEASES, "somebody's\n");
    ExpectRefused(StartDhcp(CONFIGURATION), "neither the leases of dnsmasq nor");
    EXPECT_EQ("somebody's\n", ReadFileText(LEASES));
    unlink(LEASES.c_str());
    symlink("/etc/passwd", LEASES.c_str());
    ExpectRefused(StartDhcp(CONFIGURATION), LEASES);
    EXPECT_TRUE(WaitUntil(NothingIsLeft)) << LeftOver();
}

TEST(Dhcp, PidFileNamesTheOneServerAndItsDeathLeavesNothing) {
    BackgroundCommand stranger({"sleep", "600"});
    for (const auto &[server, hidden] :
         {std::pair("dnsmasq\n", ""), std::pair("dhcpd\n", "/usr/sbin/dnsmasq")}) {
        WriteFileText("/var/run/zelan-dhcpd-zelan8.pid", std::to_string(stranger.pid()) + "\n");
        const DaemonStart start = MustComeUp(StartWithout(hidden, CONFIGURATION));
        EXPECT_EQ(server, ServerOf(start));
        EXPECT_FALSE(RunShell("ip -4 -br address | grep -q 192.168.10").Succeeded())
            << "an address on the host";
        EXPECT_TRUE(LeftOver().find("nsid") != std::string::npos) << "no namespace to look for";
        EXPECT_EQ("", StartDhcp(CONFIGURATION).report) << "two servers on one network";
        KillDaemon(start);
        EXPECT_TRUE(WaitUntil(NothingIsLeft)) << LeftOver();
    }
}

// A capability counts in the user namespace that owns what it is used on.
TEST(Dhcp, DnsmasqIsNobodyAndItsCapabilityHoldsForNoInterface) {
    const DaemonStart start = MustComeUp(StartDhcp(CONFIGURATION));
    const std::string process = "/proc/" + std::to_string(start.pid);
    EXPECT_THAT(RunShell("grep -E '^(Uid|Gid|Groups|CapBnd|NoNewPrivs):' " + process + "/status").output,
                testing::MatchesRegex("Uid:(\t[1-9][0-9]*){4}\nGid:(\t[1-9][0-9]*){4}\nGroups:\t *\n"
                                      "CapBnd:\t0000000000001000\nNoNewPrivs:\t1\n"));
    const FileDescriptor network(open((process + "/ns/net").c_str(), O_RDONLY));
    const FileDescriptor owner(ioctl(network.get(), NS_GET_USERNS));
    const std::string owners = "/proc/self/fd/" + std::to_string(owner.get());
    EXPECT_NE(std::filesystem::read_symlink(process + "/ns/user"), std::filesystem::read_symlink(owners));
}

int LeaseCount() {
    return atoi(RunShell("grep -c ' 192.168.10.' " + LEASES).output.c_str());
}

// Behind a port may be 32 clients at once, told by the Ethernet addresses in their requests, and few more an
// hour.
TEST(Dhcp, OneGuestCannotTakeAllLeases) {
    const DaemonStart start = MustComeUp(StartDhcp(
        "authoritative; subnet 192.168.10.0 netmask 255.255.255.0 { range 192.168.10.10 192.168.10.99; }"));
    const Guest hostile("02:00:00:00:00:10");
    const Guest other("02:00:00:00:01:0e");
    ASSERT_TRUE(WaitUntil(BothGuestsAreKnown));
    const auto ask = [&](int client, int address, const std::string &clientId, int macSize = 6) {
        SendFrame(&hostile, "eth0",
                  DhcpRequest{"02:00:00:00:00:" + std::to_string(client),
                              "192.168.10." + std::to_string(address), clientId, macSize}
                      .Bytes());
    };
    for (int client = 10; client < 70; client++) {
        ask(client, client, "it");
    }
    EXPECT_TRUE(WaitUntil([] { return LeaseCount() == 32; })) << LeaseCount() << " leases\n" << start;
    // Those that are known as somebody else.
    for (int more = 0; more < 10; more++) {
        ask(11, 70 + more, std::to_string(more));
        ask(12, 80 + more, "", 7 + more);
    }
    WriteClientScript("echo $ip");
    for (const Guest *guest : {&other, &hostile}) {
        const CommandResult client = RunCommand(guest->Client({"-q"}));
        EXPECT_TRUE(client.Succeeded()) << guest->name() << client << start;
    }
    EXPECT_EQ(33, LeaseCount()) << ReadFileText(LEASES);
}

// What a program in the server's place that guests have taken over gets at beyond what it serves with.
TEST(Dhcp, ServerThatTurnsHostileReachesNoOtherProcessOrFile) {
    const DaemonStart other = MustComeUp(StartNetifup(9));
    const std::string attempts =
        "try() { what=$1; shift; (\"$@\") >/dev/null 2>&1 && echo \"hostile: $what\" >&2; }\n"
        "try 'signals a daemon' kill -0 $D\n"
        "try 'joins a daemon' nsenter -t $D -n true\n"
        "try 'mounts' unshare -m true\n"
        "try 'opens passwords' chmod 666 /etc/shadow\n"
        "try 'writes passwords' sh -c ': >> /etc/shadow'\n"
        "try 'reads passwords' cat /etc/shadow\n"
        "try 'writes leases' sh -c ': >> $0' $L\n";
    for (const auto &[server, more, leases] :
         {std::tuple("/usr/sbin/dnsmasq", "", "/proc/self/fd/1"),
          std::tuple("/usr/sbin/dhcpd", ONLY_FOR_DHCPD.c_str(), LEASES.c_str())}) {
        // Under its own profile no program in its place could even begin; a private host sees no list of
        // them.
        const std::string profile = std::string("/etc/apparmor.d/usr.sbin.") + (strrchr(server, '/') + 1);
        if (ReadFileText("/sys/module/apparmor/parameters/enabled") == "Y\n" &&
            access(profile.c_str(), F_OK) == 0) {
            continue;
        }
        WriteFileText("/usr/hostile",
                      "#!/bin/sh\nD=" + std::to_string(other.pid) + "\nL=" + leases + "\n" + attempts);
        Must("chmod +x /usr/hostile");
        EXPECT_EQ("7\n", RunShell("/usr/hostile 2>&1 >>/tmp/none | grep -c hostile").output)
            << "something is not to be had anyhow";
        const DaemonStart start = StartWithout(server, CONFIGURATION + more, "/usr/hostile");
        EXPECT_EQ("hostile: writes leases\n", RunShell("grep -o 'hostile: .*' " + start.logFile).output)
            << start;
    }
}

}  // namespace
