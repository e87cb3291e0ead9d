// What an administrator does with the editor, seen by guests and by programs outside.
#include <gmock/gmock.h>

#include <csignal>

#include "tests/support/conversation.h"
#include "tests/support/editor.h"

namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

class Editor : public EditorTest {};

std::string Peer(const std::string &, const std::string &peer) {
    return peer;
}

// All that a failed change must leave alone.
std::string StateOf() {
    return RunShell(
               "sort /etc/orvane/networking; md5sum /etc/orvane/zelan*/*/*.conf; cat /var/run/zelan-*.pid")
        .output;
}

TEST_F(Editor, NewNetworkServesGuestsWithForwardsAndReservations) {
    Machine outside("outside");
    outside.ConnectToHost("eth0", "eth0", "203.0.113.9/24");
    Must("ip address add 203.0.113.1/24 dev eth0");
    Install("answer HBL_DEFAULT_BRIDGE_VNET -1\n");
    EXPECT_THAT(MustEdit("add --nat --subnet 10.7.1.0/24").output, HasSubstr("added zelan1\n"));
    auto guest = Plug(1, 5);
    const std::string address = TakeLease(*guest);
    EXPECT_THAT(address, MatchesRegex("10\\.7\\.1\\.(129|1[3-9].|2..)"));
    EXPECT_THAT(MustEdit("--no-legend lease list").output,
                MatchesRegex("zelan1  " + address + "  02:00:00:00:00:05  .*  no\n"));
    EXPECT_THAT(MustEdit("--no-legend guest list zelan1").output,
                MatchesRegex("zelan1  zelan-g5-eth0  02:00:00:00:00:05  " + address + "  .*\n"));
    EXPECT_THAT(MustEdit("--no-legend list").output,
                MatchesRegex("zelan1  NAT  10.7.1.0/24  dhcp,nat,adapter  dhcp,nat,adapter  1  1  0\n"));

    MustEdit("reserve add 1 2:0:0:0:0:5 10.7.1.20");
    EXPECT_EQ("10.7.1.20", TakeLease(*guest));
    MustEdit("forward add zelan1 tcp 8888-8889 10.7.1.20:80 --note two_ports");
    MustEdit("forward remove zelan1 tcp 8888");
    Responder second(guest.get(), SOCK_STREAM, {"10.7.1.20", 81}, Peer);
    EXPECT_EQ("203.0.113.9", Exchange(&outside, SOCK_STREAM, {"203.0.113.1", 8889}, "x"));
    EXPECT_EQ("", Exchange(&outside, SOCK_STREAM, {"203.0.113.1", 8888}, "x", milliseconds(500)));

    // The whole network moves, with the guest on it.
    MustEdit("forward remove zelan1 tcp 8889");
    MustEdit("reserve remove zelan1 10.7.1.20");
    MustEdit("set zelan1 subnet=10.7.99.0/24 range=10.7.99.50-10.7.99.59");
    EXPECT_THAT(TakeLease(*guest), MatchesRegex("10\\.7\\.99\\.5."));
    EXPECT_TRUE(guest->Run("ping -c 1 -W 5 203.0.113.9").Succeeded());
    guest.reset();
    const std::string folder = "/etc/orvane/zelan1/dhcpd/";
    Must("cd " + folder + " && touch notes dhcpd.conf.bak && mount --bind notes dhcpd.conf.bak");
    const CommandResult cut = Edit("remove zelan1");
    EXPECT_EQ(1, cut.status) << cut;
    EXPECT_THAT(cut.errors, HasSubstr("remove zelan1: " + folder + "dhcpd.conf.bak stays: Device or"));
    EXPECT_THAT(cut.errors, HasSubstr(folder + "notes is kept"));
    EXPECT_EQ("", MustEdit("--no-legend list").output);
    EXPECT_FALSE(HasLink("zelan1"));
    Must("umount " + folder + "dhcpd.conf.bak");
    MustEdit("remove zelan1");
    EXPECT_EQ("notes ", Names("/etc/orvane/zelan1/*/*"));
}

TEST_F(Editor, AdapterMovesToANetworkAndBack) {
    Machine outside("outside");
    outside.ConnectToHost("eth0", "eth0", "10.7.3.9/24");
    Install("");
    MustEdit("start");
    WriteFileText(DATABASE, ReadFileText(DATABASE) + "add_bridge_mapping eth9 4\n");
    EXPECT_EQ("stop bridge on zelan0\nstart bridge on zelan0\n", MustEdit("apply zelan0").output);
    EXPECT_EQ("nothing to change\n", MustEdit("apply zelan0").output);
    MustEdit("add zelan3 --bridge eth0");
    Machine guest("zelan-g");
    guest.ConnectToBridge("zelan-sw3", "eth0", "10.7.3.50/24");
    EXPECT_TRUE(guest.Run("ping -c 1 -W 5 10.7.3.9").Succeeded());
    EXPECT_THAT(MustEdit("--no-legend adapter list").output, HasSubstr("eth0  zelan3  yes"));
    MustEdit("adapter move eth0 none");
    // What the bridge has left behind goes in the moments after its end.
    EXPECT_TRUE(WaitUntil([&] { return !guest.Run("ping -c 1 -W 1 10.7.3.9").Succeeded(); }));
    EXPECT_THAT(MustEdit("--no-legend adapter list").output, HasSubstr("eth0  none    yes"));
}

TEST_F(Editor, ConflictsAndSlipsAreRefusedWithTheirReasonAndChangeNothing) {
    Must("ip link add docker0 type bridge && ip address add 172.17.0.1/16 dev docker0");
    StartNat8(Subnet(9) + "add_nat_portfwd 9 udp 53 10.7.9.5 53\n");
    Responder server(nullptr, SOCK_STREAM, {"127.0.0.1", 2222}, Peer);
    const std::string before = StateOf();
    const struct {
        const char *line;
        int status;
        const char *words;
    } cases[] = {
        {"set zelan8 subnet=172.16.0.0/12", 4, "overlaps 172.17.0.0/16 of the bridge docker0"},
        {"add zelan8 --nat", 4, "zelan8 is configured already"},
        {"forward add 8 tcp 2222 10.7.8.9:22", 4, "tcp port 2222 of the host is used by system_tests ("},
        {"forward add 8 udp 53 10.7.8.9:53", 4, "udp port 53 is forwarded by zelan9 to 10.7.9.5:53"},
        {"forward add 9 tcp 80 10.7.9.9:80", 2, "zelan9 has no NAT"},
        {"forward add 8 tcp 0-1 10.7.8.9:80", 2, "\"0-1\" is no port"},
        {"forward add 8 tcp 2-1 10.7.8.9:80", 2, "\"2-1\" is no port"},
        {"forward add 8 sctp 80 10.7.8.9:80", 2, "\"sctp\" is no protocol: tcp or udp"},
        {"forward remove 8 tcp 80", 2, "zelan8 forwards no such port"},
        {"reserve add 8 2:0:0:0:0:1 10.7.8.1", 4, "the reserved address 10.7.8.1 is the host's address"},
        {"reserve add 8 nobody 10.7.8.9", 2, "no lease of zelan8 has that name"},
        {"set zelan8 dns=9.9.9.9 colour=red", 2, "there is no key \"colour\": subnet dhcp"},
        {"adapter move eth7 zelan3", 2, "the host has no adapter \"eth7\""},
        {"show zelan256", 2, "zelan0 to zelan255"},
        {"lis", 2, "\"lis\" is not understood"},
        {"apply --plan /etc/passwd", 2, "/etc/passwd is no plan"},
        {"add --nat --host-only", 2, "exactly one of --nat, --host-only and --bridge ADAPTER"},
        {"add --bridge eth7 --no-dhcp", 2, "a bridged network has no subnet and no DHCP of its own"},
        {"add --nat --subnet 10.7.3.1/24", 2, "subnet \"10.7.3.1/24\" is not allowed"},
        {"add zelan3 --bridge eth7 --bridge eth8", 2, "zelan3 takes one adapter"},
        {"add zelan3 --bridge eth7", 2, "the host has no adapter \"eth7\""},
        {"adapter move eth7 nowhere --yes", 2, "\"nowhere\" is no network, nor \"default\", nor \"none\""},
        {"adapter default maybe", 2, "\"maybe\" is neither on nor off"},
        {"unset zelan8 colour", 2, "there is no key \"colour\""},
        {"forward add 8 tcp 80 10.7.8.9", 2, "\"10.7.8.9\" is no place of a guest"},
        {"forward add 8 tcp 80-86 10.7.8.9:65530", 2, "the range does not fit behind port 65530"},
        {"reserve add 8 2:0:0:0:0:1", 2, "2:0:0:0:0:1 has no lease whose address could be kept"},
        {"reserve add 8 2:0:0:0:0:1 10.7.8", 2, "\"10.7.8\" is no address"},
        {"reserve remove 8 10.7.8.77", 2, "zelan8 keeps no address for \"10.7.8.77\""},
        {"forward", 2, "A subcommand is required; --help tells more"},
        {"graph -o /nowhere/file", 1, "/nowhere/file: No such file or directory"},
        {"export /nowhere/file", 1, "/nowhere/file is not written: "},
    };
    for (const auto &row : cases) {
        const CommandResult result = Edit(row.line);
        EXPECT_EQ(row.status, result.status) << row.line << "\n" << result;
        EXPECT_THAT(result.errors, HasSubstr(row.words)) << row.line;
        EXPECT_EQ("", result.output) << row.line;
    }
    EXPECT_EQ(before, StateOf());
    std::string all = "VERSION=1,0\n";
    for (int network = 1; network < 256; network++) {
        all += "answer VNET_" + std::to_string(network) + "_HOSTONLY_SUBNET 10.7.8.0\n";
    }
    Install(all);
    EXPECT_THAT(Edit("add --nat").errors, HasSubstr("all 256 networks are in use\n"));
}

TEST_F(Editor, CommandsWriteTheRecordsThatTheySayAndNoOthers) {
    Machine outside("outside");
    outside.ConnectToHost("eth0", "eth0");
    Install(Nat8());
    WriteFileText("/etc/orvane/zelan8/dhcpd/dhcpd.leases", "0 02:00:00:00:00:05 10.7.8.130 web *\n");
    const std::pair<const char *, const char *> cases[] = {
        {"reserve add 8 web", "+ add_dhcp_mac_to_ip 8 02:00:00:00:00:05 10.7.8.130\n"},
        {"reserve add 8 2:0:0:0:0:5 10.7.8.20",
         "- add_dhcp_mac_to_ip 8 02:00:00:00:00:05 10.7.8.130\n+ add_dhcp_mac_to_ip 8 02:00:00:00:00:05 "
         "10.7.8.20\n"},
        {"reserve add 8 2:0:0:0:0:6 10.7.8.21", "+ add_dhcp_mac_to_ip 8 02:00:00:00:00:06 10.7.8.21\n"},
        {"reserve remove 8 10.7.8.21", "- add_dhcp_mac_to_ip 8 02:00:00:00:00:06 10.7.8.21\n"},
        {"reserve remove 8 web", "- add_dhcp_mac_to_ip 8 02:00:00:00:00:05 10.7.8.20\n"},
        {"forward add 8 tcp 65534-65535 10.7.8.9:65534 --note n",
         "+ add_nat_portfwd 8 tcp 65534 10.7.8.9 65534 n\n+ add_nat_portfwd 8 tcp 65535 10.7.8.9 65535 n\n"},
        {"forward add 8 udp 65535 10.7.8.9:1", "+ add_nat_portfwd 8 udp 65535 10.7.8.9 1\n"},
        {"forward add 8 udp 65535 10.7.8.9:1",
         "harbrelctl: udp port 65535 is forwarded by zelan8 to 10.7.8.9:1 already\n"},
        {"forward remove 8 tcp 65535", "- add_nat_portfwd 8 tcp 65535 10.7.8.9 65535 n\n"},
        {"forward remove 8 tcp 1-65534", "- add_nat_portfwd 8 tcp 65534 10.7.8.9 65534 n\n"},
        {"set 8 domain=a.b range=10.7.8.50-10.7.8.60 gateway=10.7.8.9 active-ftp=off",
         "+ answer VNET_8_DHCP_PARAM_LEASE_START_IP 10.7.8.50\n"
         "+ answer VNET_8_DHCP_PARAM_LEASE_END_IP 10.7.8.60\n"
         "+ answer VNET_8_DHCP_PARAM_DOMAIN_NAME \"a.b\"\n+ answer VNET_8_NAT_PARAM_GATEWAY_IP 10.7.8.9\n"
         "+ answer VNET_8_NAT_PARAM_ACTIVE_FTP 0\n"},
        {"unset 8 domain range gateway",
         "- answer VNET_8_DHCP_PARAM_LEASE_START_IP 10.7.8.50\n"
         "- answer VNET_8_DHCP_PARAM_LEASE_END_IP 10.7.8.60\n"
         "- answer VNET_8_DHCP_PARAM_DOMAIN_NAME \"a.b\"\n"
         "- answer VNET_8_NAT_PARAM_GATEWAY_IP 10.7.8.9\n"},
        {"adapter default off",
         "- answer HBL_DEFAULT_BRIDGE_VNET 0\n+ answer HBL_DEFAULT_BRIDGE_VNET -1\n"
         "+ add_bridge_mapping eth0 0\n"},
        {"adapter move eth0 default", "- add_bridge_mapping eth0 0\n+ add_bridge_mapping eth0 -1\n"},
        {"adapter default on",
         "- answer HBL_DEFAULT_BRIDGE_VNET -1\n+ answer HBL_DEFAULT_BRIDGE_VNET 0\n"
         "- add_bridge_mapping eth0 -1\n+ add_bridge_mapping eth0 0\n"},
        {"adapter move eth0 none", "- add_bridge_mapping eth0 0\n+ add_bridge_mapping eth0 -1\n"},
        {"-y adapter move eth7 3", "+ add_bridge_mapping eth7 3\n"},
        {"add 0 --bridge eth0 --bridge eth0",
         "- add_bridge_mapping eth0 -1\n+ add_bridge_mapping eth0 0\nadded zelan0\n"},
        {"add --bridge eth0", "- add_bridge_mapping eth0 0\n+ add_bridge_mapping eth0 1\nadded zelan1\n"},
        {"add --host-only --no-dhcp --subnet 10.7.9.0/24",
         "+ answer VNET_2_HOSTONLY_SUBNET 10.7.9.0\n+ answer VNET_2_HOSTONLY_NETMASK 255.255.255.0\n"
         "+ answer VNET_2_VIRTUAL_ADAPTER yes\nadded zelan2\n"},
        {"remove 2 1 2 77", "remove zelan2\nremove zelan1\n"},
        {"remove 77", "nothing to change\n"},
    };
    for (const auto &[line, records] : cases) {
        const CommandResult result = Edit(std::string("-v --no-apply ") + line);
        EXPECT_EQ(records, result.output + result.errors) << line;
    }
    EXPECT_EQ(
        "VERSION=1,0\nanswer HBL_DEFAULT_BRIDGE_VNET 0\nanswer VNET_8_DHCP yes\n"
        "answer VNET_8_HOSTONLY_NETMASK 255.255.255.0\nanswer VNET_8_HOSTONLY_SUBNET 10.7.8.0\nanswer "
        "VNET_8_NAT yes\n"
        "answer VNET_8_NAT_PARAM_ACTIVE_FTP 0\nanswer VNET_8_VIRTUAL_ADAPTER yes\nadd_nat_portfwd 8 udp "
        "65535 10.7.8.9 1 \n"
        "add_bridge_mapping eth0 0\nadd_bridge_mapping eth7 3\n",
        RunShell("grep -vE 'HASH| no$' /etc/orvane/networking").output);
    EXPECT_EQ("zelan0  bridged  -  bridge  -  0  0  0\n", Edit("--no-legend list 0").output);
    Must("ip link add eth8 type veth peer name eth9");  // which the library does not know
    EXPECT_THAT(Edit("--no-legend adapter list").output, HasSubstr("eth8  zelan0  default  down     -\n"));
    MustEdit("-y --no-apply adapter default off");
    EXPECT_EQ(
        "add_bridge_mapping eth0 0\nadd_bridge_mapping eth7 3\nadd_bridge_mapping eth8 0\n"
        "add_bridge_mapping eth9 0\n",
        RunShell("grep mapping /etc/orvane/networking | sort").output);
    Must("for a in 172.16.0.1/12 192.168.0.1/16 10.0.0.1/8; do ip address add $a dev eth0; done");
    Replace("orvane-ping", "exit 1\n");
    EXPECT_EQ("harbrelctl: no free subnet is found; --subnet ADDRESS/PREFIX names one\n",
              Edit("add --nat").errors);
}

TEST_F(Editor, TerminalsAndProgramsAroundItAreServed) {
    Install(Nat8() + "answer HBL_DEFAULT_BRIDGE_VNET -1\n");
    const std::string ctl = ProgramPath("harbrelctl");
    const auto terminal = [](const std::string &answer, const std::string &command) {
        return RunShell("echo " + answer + " | script -qec '" + command + "' /dev/null");
    };
    const CommandResult asked = terminal("n", ctl + " remove 8");
    EXPECT_EQ(1, asked.status);
    EXPECT_THAT(asked.output, HasSubstr("Remove zelan8 with all settings? [y/N] "));
    EXPECT_THAT(terminal("", ctl + " list").output, HasSubstr("\033[31m-\033[0m"));
    EXPECT_THAT(terminal("", "NO_COLOR=1 " + ctl + " list").output, Not(HasSubstr("\033")));
    EXPECT_THAT(terminal("", ctl + " -n add --nat").output,
                HasSubstr("subnet that nothing uses \r\033[K+ answer"));
    Replace("dot", "[ $1 = -Tsvg ] && cat $4 > $3\n");
    EXPECT_EQ("", RunShell(ctl + " list <&- >&-").errors) << "a closed output became a file";
    const std::string dot = MustEdit("graph").output;
    const std::string path = std::string("PATH=") + FOLDER + ":$PATH ";
    EXPECT_EQ("", RunShell(path + ctl + " graph -o /tmp/a.svg").errors);
    EXPECT_EQ(dot, ReadFileText("/tmp/a.svg"));
    Replace("dot", "exit 1\n");
    EXPECT_EQ(
        "harbrelctl: the picture cannot be drawn, for which Graphviz is needed; /tmp/b.dot has its "
        "description\n",
        RunShell(path + ctl + " graph -o /tmp/b.svg").errors);
    EXPECT_EQ(dot, ReadFileText("/tmp/b.dot"));
    EXPECT_EQ("harbrelctl: standard output does not take the result: No space left on device\n",
              RunShell(ctl + " list > /dev/full").errors);
    EXPECT_THAT(MustEdit("set --help").output, HasSubstr("lease-time=seconds, 0 to 999999999"));
    EXPECT_EQ(0, terminal("y", ctl + " remove 8").status);
    EXPECT_EQ("", Edit("--no-legend list").output);
    Must("cp " + ctl + " " HARBREL_LIB_DIR "/libharbrel.so.0 /run");
    const std::string stranger =
        "LD_LIBRARY_PATH=/run setpriv --reuid=65534 --clear-groups /run/harbrelctl apply";
    for (const auto &[spoil, words] :
         {std::pair(":", "run this as root"),
          {"echo answer HBL_DEFAULT_BRIDGE_VNET 5 >> /etc/orvane/networking", "neither 0 nor -1"},
          {"echo x > /etc/orvane/harbrelctl.undo", "cannot be read: put the database right and remove it"},
          {"echo x > /etc/orvane/networking", "is damaged: its first line is not VERSION=1,0"},
          {"rm /etc/orvane/networking", "there is no database /etc/orvane/networking"}}) {
        Must(spoil);
        EXPECT_THAT(RunShell(*spoil == ':' ? stranger : ctl + " apply").errors, HasSubstr(words));
    }
}

TEST_F(Editor, PlanIsShownKeptAndRefusedWhenTheStateHasMovedOn) {
    StartNat8();
    const std::string before = StateOf();
    const CommandResult shown = MustEdit("--dry-run forward add zelan8 tcp 8888 10.7.8.9:80");
    EXPECT_THAT(shown.output, HasSubstr("+ add_nat_portfwd 8 tcp 8888 10.7.8.9 80\n"));
    EXPECT_THAT(shown.output, HasSubstr(" [incomingtcp]\n+8888 = 10.7.8.9:80\n"));
    EXPECT_THAT(shown.output, HasSubstr("* start nat on zelan8\n"));
    EXPECT_THAT(shown.output, Not(HasSubstr("dhcp")));
    WriteFileText("/tmp/plan", MustEdit("-n -j forward add zelan8 tcp 8888 10.7.8.9:80").output);
    EXPECT_EQ(before, StateOf()) << "a dry run has changed something";
    const pid_t dhcp = Pid("zelan-dhcpd-zelan8");
    MustEdit("apply --plan /tmp/plan");
    EXPECT_EQ(dhcp, Pid("zelan-dhcpd-zelan8")) << "a service that has nothing to do with it was restarted";
    EXPECT_THAT(ReadFileText("/etc/orvane/zelan8/nat/nat.conf"), HasSubstr("8888 = 10.7.8.9:80"));
    const std::string after = StateOf();
    EXPECT_EQ(5, Edit("apply --plan /tmp/plan").status);
    EXPECT_EQ(after, StateOf());
    EXPECT_EQ("nothing to change\n", MustEdit("apply zelan8").output);
    // What is not right is put right, and only that.
    kill(Pid("zelan-natd-8"), SIGKILL);
    EXPECT_TRUE(WaitUntil([] { return Edit("list zelan8").status == 3; }));
    EXPECT_EQ("start nat on zelan8\n", MustEdit("apply zelan8").output);
    Must("touch -d '+9 seconds' /etc/orvane/zelan8/*/*.conf");
    EXPECT_EQ("stop dhcp on zelan8\nstop nat on zelan8\nstart dhcp on zelan8\nstart nat on zelan8\n",
              MustEdit("apply zelan8").output);
    MustEdit("--no-apply set zelan8 lease-time=600");
    EXPECT_THAT(MustEdit("apply").output, HasSubstr("write the file of dhcp on zelan8\n"));
    EXPECT_THAT(ReadFileText("/etc/orvane/zelan8/dhcpd/dhcpd.conf"), HasSubstr("default-lease-time 600;"));
}

TEST_F(Editor, ServicesGoWithDetectionAndStayDownOnASubnetThatIsTaken) {
    StartNat8();
    const std::string stops = "stop dhcp on zelan8\nstop nat on zelan8\nstop adapter on zelan8\n";
    Must("sed -i 's/^# Written at: .*/# Written at: some time/' /etc/orvane/zelan8/dhcpd/dhcpd.conf");
    EXPECT_EQ(stops + "start dhcp on zelan8\nstart nat on zelan8\nstart adapter on zelan8\n",
              MustEdit("restart zelan8").output);
    EXPECT_EQ("start the network detection\nnothing to change\n", MustEdit("start").output);
    EXPECT_EQ("stop the network detection\n" + stops, MustEdit("stop").output);
    Must("ip address add 10.7.8.1/32 dev lo");
    Replace("zelan-detect", "exit 0\n");
    const CommandResult refused = Edit("start");
    EXPECT_EQ(1, refused.status);
    EXPECT_EQ(
        "harbrelctl: zelan8 is not started: something answers on its subnet 10.7.8.0/24; set zelan8 "
        "subnet=ADDRESS/PREFIX moves it\nharbrelctl: not done: start the network detection\n",
        refused.errors);
    EXPECT_TRUE(WaitUntil([] { return Daemons().empty(); }));
    Must("ip address del 10.7.8.1/32 dev lo");
    for (const auto &[name, number] :
         {std::pair("INT", SIGINT), {"TERM", SIGTERM}, {"HUP", SIGHUP}, {"QUIT", SIGQUIT}}) {
        std::signal(number, SIG_DFL);  // whoever runs the tests may have them ignored
        Replace("zelan-natd", std::string("kill -") + name + " $(ps -o pid= -C harbrelctl)\nexit 1\n");
        const CommandResult result = Edit("restart zelan8");
        EXPECT_EQ(128 + number, result.status);
        EXPECT_THAT(result.output, testing::EndsWith("start dhcp on zelan8\nstart adapter on zelan8\n"))
            << "behind the signal";
        EXPECT_EQ(
            "harbrelctl: not done: start nat on zelan8: Failure in starting \"NAT\" service for vnet: "
            "zelan8\n",
            result.errors);
    }
}

TEST_F(Editor, TextOfANetworkIsTakenAsAWholeOrNotAtAll) {
    StartNat8("add_nat_portfwd 8 tcp 8888 10.7.8.9 80 web server\n");
    const std::string before = StateOf();
    const auto edit = [](const std::string &script) {
        WriteFileText("/tmp/editor", "#!/bin/sh\n" + script + "\n");
        Must("chmod +x /tmp/editor");
        return RunShell("EDITOR=/tmp/editor " + ProgramPath("harbrelctl") + " edit zelan8");
    };
    EXPECT_EQ(1, edit("exit 1").status) << "an editor that fails";
    EXPECT_EQ(0, edit(":").status) << "a text that is left as it was";
    // The first try spoils it, the second keeps what came back, which has the errors in it.
    const CommandResult refused = edit(
        "[ -e /tmp/shown ] && { cp $1 /tmp/again; exit 0; }; cp $1 /tmp/shown; sed -i "
        "'s/^#range=.*/range=10.7.8.9/; "
        "s/8888/88888/; s/^#dns=.*/dns=9.9.9.9/' $1");
    EXPECT_EQ(2, refused.status) << refused;
    EXPECT_THAT(ReadFileText("/tmp/shown"), HasSubstr("\nforward tcp 8888 10.7.8.9:80 web server\n"));
    EXPECT_THAT(ReadFileText("/tmp/again"), HasSubstr("#! line 8: range \"10.7.8.9\" is not allowed"));
    EXPECT_THAT(ReadFileText("/tmp/again"), HasSubstr("dns=9.9.9.9"));
    EXPECT_EQ(before, StateOf());
    const CommandResult taken =
        edit("sed -i 's/^#dns=.*/dns=9.9.9.9/; s/8888/8889/' $1; echo reserve 2:0:0:0:0:1 10.7.8.20 >> $1");
    EXPECT_EQ(0, taken.status) << taken;
    EXPECT_THAT(ReadFileText("/etc/orvane/zelan8/nat/nat.conf"), HasSubstr("8889 = 10.7.8.9:80"));
    EXPECT_THAT(ReadFileText("/etc/orvane/zelan8/dhcpd/dhcpd.conf"), HasSubstr("fixed-address 10.7.8.20;"));
    EXPECT_THAT(ReadFileText("/etc/orvane/zelan8/dhcpd/dhcpd.conf"),
                HasSubstr("domain-name-servers 9.9.9.9;"));
}

TEST_F(Editor, ExportedSettingsComeBackWithTheirDifferencesShown) {
    StartNat8();
    MustEdit("export /root/kept");
    const std::string before = RunShell("grep -v _HASH " + std::string(DATABASE)).output;
    MustEdit("set zelan8 dns=9.9.9.9 nat=off");
    EXPECT_THAT(MustEdit("--dry-run import /root/kept").output,
                HasSubstr("- answer VNET_8_DHCP_PARAM_DNS_ADDR 9.9.9.9\n+ answer VNET_8_NAT yes\n"));
    MustEdit("import /root/kept");
    EXPECT_EQ(before, RunShell("grep -v _HASH " + std::string(DATABASE)).output);
    EXPECT_EQ(0, Edit("list zelan8").status) << "NAT was not started again";
    EXPECT_EQ("", RunShell(ProgramPath("harbrelctl") + " -j doctor | grep code").output);
    EXPECT_EQ(2, Edit("import /nowhere").status);
    EXPECT_THAT(Edit("import /etc/hostname").errors,
                HasSubstr("/etc/hostname holds no settings of networks"));
    EXPECT_EQ(before, RunShell("grep -v _HASH " + std::string(DATABASE)).output);
}

TEST_F(Editor, WatcherSeesWhatHappens) {
    StartNat8();
    BackgroundCommand words(EditorCommand({"watch"}), "/tmp/words");
    BackgroundCommand watcher(EditorCommand({"-j", "watch"}), "/tmp/events");
    const auto see = [](const std::string &event, const std::string &subject) {
        const std::string part =
            "\"event\":\"" + event + "\",\"network\":\"zelan8\",\"subject\":\"" + subject + "\"";
        EXPECT_TRUE(WaitUntil([&] {
            return ReadFileText("/tmp/events").find(part) != std::string::npos &&
                   ReadFileText("/tmp/words").find("  " + event + "  ") != std::string::npos;
        })) << part
            << ReadFileText("/tmp/events");
    };
    // They have to have seen how things were before.
    for (const auto *one : {&words, &watcher}) {
        ASSERT_TRUE(WaitUntil([&] {
            return RunShell("ls -l /proc/" + std::to_string(one->pid()) + "/fd | grep inotify").Succeeded();
        }));
    }
    auto guest = Plug(8, 1);
    see("guest-plugged", "zelan-g1-eth0");
    const std::string lease = TakeLease(*guest);
    see("lease-given", lease);
    guest.reset();
    see("guest-unplugged", "zelan-g1-eth0");
    MustEdit("set zelan8 lease-time=600");
    see("database-changed", "answer VNET_8_DHCP_PARAM_SUB_DEFAULT_LEASE_TIME 600");
    kill(Pid("zelan-natd-8"), SIGKILL);
    see("service-ended", "nat");
    MustEdit("apply");
    see("service-started", "nat");
    Must("ip address add 10.9.0.1/16 dev lo; ip address add 10.7.0.1/16 dev lo");
    see("overlap-appeared", "10.7.0.0/16");
    Must("ip address del 10.7.0.1/16 dev lo");
    see("overlap-gone", "10.7.0.0/16");
    WriteFileText("/etc/orvane/zelan8/dhcpd/dhcpd.leases", "");
    see("lease-ended", lease);
    // In words, with what may differ from run to run left out.
    EXPECT_TRUE(WaitUntil([&] {
        return RunShell("sed -E '/service|guest/d; s/^20..-..-.. ..:..:..  zelan8  //' /tmp/words").output ==
               "lease-given  " + lease + " 02:00:00:00:00:01\n" +
                   "database-changed  set answer VNET_8_DHCP_PARAM_SUB_DEFAULT_LEASE_TIME 600\n"
                   "overlap-appeared  10.7.0.0/16 of the interface lo\n"
                   "overlap-gone  10.7.0.0/16 of the interface lo\n"
                   "lease-ended  " +
                   lease + " 02:00:00:00:00:01\n";
    })) << ReadFileText("/tmp/words");
}

TEST_F(Editor, DocumentsFollowTheirSchema) {
    StartNat8(
        "add_nat_portfwd 8 tcp 8888 10.7.8.9 80 web\nadd_dhcp_mac_to_ip 8 02:00:00:00:00:01 10.7.8.9\n");
    auto guest = Plug(8, 1);
    EXPECT_EQ("10.7.8.9", TakeLease(*guest));
    std::string documents;
    int count = 0;
    for (const char *line :
         {"list", "show zelan8", "show zelan77", "forward list", "reserve list", "adapter list", "lease list",
          "guest list", "-n set zelan8 dns=9.9.9.9 nat=off", "apply zelan8", "doctor"}) {
        const std::string file = "/tmp/document" + std::to_string(count++);
        WriteFileText(file, Edit(std::string("-j ") + line).output);
        documents += " -i " + file;
    }
    const CommandResult valid = RunShell("/usr/bin/python3 -W ignore -m jsonschema" + documents +
                                         " " HARBREL_DOCS_DIR "/harbrelctl.schema.json");
    EXPECT_TRUE(valid.Succeeded()) << valid;
    EXPECT_THAT(MustEdit("graph").output, HasSubstr("\"host\" -> \"zelan8 10.7.8.9\" [label=\"tcp 8888\""));
    EXPECT_THAT(MustEdit("-j lease list").output, HasSubstr("\"address\": \"10.7.8.9\""));
    EXPECT_THAT(MustEdit("-j guest list").output, HasSubstr("\"port\": \"zelan-g1-eth0\""));
    // Without what differs from run to run and from server to server.
    EXPECT_EQ(
        "network zelan8\nkind NAT\ndhcp running\nnat running\nadapter running\nsubnet 10.7.8.0/24\n"
        "adapter-address 10.7.8.1 (default)\nadapter-name zelan8 (default)\n"
        "range 10.7.8.129-10.7.8.254 (default)\nlease-time 1800 (default)\nmax-lease-time 7200 (default)\n"
        "dns 10.7.8.2 (default)\ndomain localdomain (default)\nrouters 10.7.8.2 (default)\n"
        "gateway 10.7.8.2 (default)\nactive-ftp on (default)\nudp-timeout 60 (default)\nswitch zelan-sw8\n"
        "file /etc/orvane/zelan8/dhcpd/dhcpd.conf\nfile /etc/orvane/zelan8/dhcpd/dhcpd.leases\n"
        "file /etc/orvane/zelan8/nat/nat.conf\n\nForwards\nNETWORK PROTOCOL PORT GUEST NOTE\n"
        "zelan8 tcp 8888 10.7.8.9:80 web\n\nReservations\nNETWORK ADDRESS MAC\n"
        "zelan8 10.7.8.9 02:00:00:00:00:01\n\nLeases\nNETWORK ADDRESS MAC NAME FROM UNTIL STATIC\n"
        "zelan8 10.7.8.9 02:00:00:00:00:01 yes\n\n",
        RunShell(ProgramPath("harbrelctl") +
                 " show zelan8 | tr -s ' ' | sed -E 's/, .*//; s/ - .* yes/ yes/; /^Guests/,$d'")
            .output);
}

// A line of strace(1)'s that has calls fail, and the command's words.
TEST_F(Editor, WhatTheKernelRefusesIsToldAndNothingIsChanged) {
    Install(Nat8());
    const std::string before = StateOf();
    const std::string set = "--no-apply set zelan8 dns=9.9.9.9", nothing = "nothing is changed: ";
    const std::string kernel = "the kernel does not tell its interfaces: Cannot allocate memory";
    const std::string stage =
        nothing + "a private view of the configuration cannot be made: Operation not permitted";
    const struct {
        const char *faults;
        std::string line, words;
    } rows[] = {
        {"-e inject=bind:error=ENOMEM", set, kernel},
        {"-e inject=bind:error=ENOMEM", "list", kernel},
        {"-e inject=bind:error=ENOMEM", "graph", kernel},
        {"-e inject=bind:error=ENOMEM", "doctor", kernel},
        {"-e inject=bind:error=ENOMEM", "watch", "the host cannot be read"},
        {"-e inject=inotify_init1:error=EMFILE", "watch", "the kernel does not tell of changes"},
        {"-P /run/harbrelctl.lock -e inject=openat:error=EMFILE", set,
         "another harbrelctl is changing the networks; try again when it is done"},
        {"-e inject=unshare:error=EPERM", set, stage},
        {"-e inject=mount:error=EPERM:when=2", "import " + std::string(DATABASE), stage},
        {"-e inject=memfd_create:error=ENOMEM", set,
         nothing + "no memory for a rehearsal: Cannot allocate memory"},
        {"-e inject=memfd_create:error=ENOMEM", "doctor",
         "no memory for a rehearsal: Cannot allocate memory"},
        {"-e inject=clone:error=EAGAIN", set,
         nothing + "a rehearsal cannot be started: Resource temporarily unavailable"},
        {"-P /etc/orvane/harbrelctl.undo.new -e inject=openat:error=ENOSPC", set,
         nothing + "/etc/orvane/harbrelctl.undo cannot be written: No space left on device"},
        {"-e inject=pipe2:error=EMFILE", "add --nat",
         "no free subnet is found; --subnet ADDRESS/PREFIX names one"},
    };
    for (const auto &[faults, line, words] : rows) {
        const CommandResult result = RunShell(std::string(STRACE) + "-f -qq -o /run/trace " + faults + " " +
                                              ProgramPath("harbrelctl") + " " + line);
        EXPECT_EQ("harbrelctl: " + words + "\n", result.errors) << faults;
        EXPECT_EQ(words.starts_with("no free") ? 4 : 1, result.status) << result;
        EXPECT_EQ("", result.output);
        EXPECT_EQ(before, StateOf());
    }
}

// Fails and kills at each of its own writes to the database, and at the end of the way back, until one run is
// not hit any more. Those of the rehearsal, a process below it with a database of its own, are spared, or
// nothing would be written behind them.
TEST_F(Editor, ChangeOfManyRecordsIsWrittenWholeOrNotAtAll) {
    const std::string set =
        "--no-apply set zelan8 dns=9.9.9.9 lease-time=700 range=10.7.8.50-10.7.8.60 nat=off";
    const std::string remove = "remove zelan8";
    const auto configured = [] {
        return RunShell("sed -E '/_HASH /d; s/ no$/ -/; / -$/d' /etc/orvane/networking | sort").output;
    };
    Install(Nat8());
    const std::string old = configured();
    const std::string undo = "/etc/orvane/harbrelctl.undo";
    for (const auto &[change, file, call, fault, leastHits] :
         {std::tuple(set, std::string(DATABASE), "write", "error=ENOSPC", 5),
          {set, DATABASE, "write", "signal=KILL", 5},
          {remove, DATABASE, "write", "error=ENOSPC", 5},
          {remove, DATABASE, "write", "signal=KILL", 5},
          {set, undo, "unlink", "error=EIO", 1},
          {set, undo, "unlink", "signal=KILL", 1}}) {
        Install(Nat8());
        MustEdit(change);
        const std::string fresh = configured();
        ASSERT_NE(old, fresh);
        int hits = 0;
        for (int turn = 1; turn < 40; turn++) {
            Install(Nat8());
            const CommandResult result =
                RunShell(std::string(STRACE) + "-qq -o /run/trace -P " + file + " -e trace=" + call +
                         " -e inject=" + call + ":" + fault + ":when=" + std::to_string(turn) + " " +
                         ProgramPath("harbrelctl") + " " + change);
            const bool hit = RunShell("grep -qE 'INJECTED|killed' /run/trace").Succeeded();
            hits += hit ? 1 : 0;
            // The next editor finds the one or the other.
            MustEdit("stop zelan8");
            EXPECT_EQ(result.status == 0 ? fresh : old, configured()) << fault << turn << result;
            if (!hit) {
                EXPECT_EQ(0, result.status) << result;
                break;
            }
        }
        EXPECT_GE(hits, leastHits) << "the fault was not met";
    }
}

}  // namespace
