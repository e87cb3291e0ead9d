// The editor's readers: what people write, and what DHCP servers and the database leave behind.
#include <gmock/gmock.h>

#include "apps/zelan/posix/harbrelctl/model/guests.h"
#include "apps/zelan/posix/harbrelctl/model/keys.h"
#include "apps/zelan/posix/harbrelctl/model/readHost.h"
#include "apps/zelan/posix/harbrelctl/output/editText.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

TEST(EditorModel, WordsAreReadWholeOrRefused) {
    for (const char *good : {"192.168.8.0/24", "10.0.0.8/29", "0.0.0.0/0"}) {
        EXPECT_EQ(good, SubnetText(ParseSubnet(good).value_or(Subnet{1, 1})));
    }
    for (const char *bad : {"192.168.8.1/24", "192.168.8.0", "128.0.0.0/33", "192.168.8/24",
                            "192.168.8.0/24 ", "192.168.8.0/-1"}) {
        EXPECT_EQ(std::nullopt, ParseSubnet(bad)) << bad;
    }
    EXPECT_EQ((Subnet{0x0a070800, 0xffffff00}), SubnetOf("10.7.8.9", "255.255.255.0"));
    for (const char *mask : {"255.0.255.0", "24", ""}) {
        EXPECT_EQ(std::nullopt, SubnetOf("10.7.8.9", mask)) << mask;
    }
    EXPECT_EQ("02:0A:00:00:00:FF", StandardMac("2:a:0:0:0:fF"));
    for (const char *bad :
         {"", "2:a:0:0:0", "2:a:0:0:0:0:0", "2:a:0:0:0:100", "2:a:0:0:0:", "2:a:0:0:0:g", "2:a:0:0:0:-1"}) {
        EXPECT_EQ(std::nullopt, StandardMac(bad)) << bad;
    }
    EXPECT_EQ(8, ParseNetwork("Zelan8"));
    EXPECT_EQ(255, ParseNetwork("255"));
    for (const char *bad : {"", "zelan", "256", "-1", "zelan8x", "8 "}) {
        EXPECT_EQ(std::nullopt, ParseNetwork(bad)) << bad;
    }
}

TEST(EditorModel, AssignmentsAreTakenInTheFormThatTheLibraryStores) {
    NetworkConfig config;
    for (const char *good :
         {"subnet=10.1.0.0/16", "range=10.1.0.9-10.1.0.20", "domain=lab.example.org", "nat=yes", "dhcp=on",
          "dhcp=false", "adapter-name=x", "lease-time=999999999", "active-ftp=off"}) {
        EXPECT_EQ("", Assign(good, &config));
    }
    std::string stored;
    for (int field = 0; field < FIELD_COUNT; field++) {
        stored +=
            config.stored[field] ? std::string(FIELDS[field].name) + "=" + *config.stored[field] + " " : "";
    }
    EXPECT_EQ(
        "subnet=10.1.0.0 subnet=255.255.0.0 adapter-name=x range=10.1.0.9 range=10.1.0.20 "
        "lease-time=999999999 "
        "domain=\"lab.example.org\" active-ftp=0 nat=yes ",
        stored);
    std::string errors;
    for (const char *bad : {"range=1-1.0.0.9", "range=1.0.0.9", "dns=10.1", "domain=", "adapter-name=",
                            "dhcp=maybe", "active-ftp=2", "lease-time=1000000000", "lease-time"}) {
        errors += Assign(bad, &config) + "\n";
    }
    const std::string no = " is not allowed: ", range = "FIRST-LAST, two IPv4 addresses\n";
    EXPECT_EQ("range \"1-1.0.0.9\"" + no + range + "range \"1.0.0.9\"" + no + range + "dns \"10.1\"" + no +
                  "an IPv4 address\ndomain \"\"" + no + "a domain name\nadapter-name \"\"" + no +
                  "an interface name\ndhcp \"maybe\"" + no + "on or off\nactive-ftp \"2\"" + no +
                  "on or off\nlease-time \"1000000000\"" + no +
                  "seconds, 0 to 999999999\n\"lease-time\" is no KEY=VALUE\n",
              errors);
    EXPECT_EQ("", Assign("active-ftp=true", &config) + Assign("domain=lab", &config));
    EXPECT_EQ("1lab", *config.stored[FIELD_ACTIVE_FTP] + *config.stored[FIELD_DOMAIN]);
}

TEST(EditorModel, LeasesOfBothServersAreTheValidOnes) {
    constexpr time_t NOW = 1800000000;  // 2027-01-15 08:00:00 in UTC
    const std::string texts[] = {
        "# The format of this file is documented\nauthoring-byte-order little-endian;\n\n"
        "lease 192.168.8.130 {\n  starts 4 2027/01/15 07:00:00;\n  ends 4 2027/01/15 07:30:00;\n"
        "  binding state active;\n  hardware ethernet 02:00:00:00:00:0a;\n}\nlease nowhere {\n  ends "
        "never;\n}\n"
        "lease 192.168.8.131 {\n  starts 4 2027/01/15 07:50:00;\n  ends 4 2027/01/15 08:20:00;\n"
        "  binding state active;\n  next binding state free;\n  hardware ethernet 02:00:00:00:00:0b;\n"
        "  client-hostname \"we&b.c-d_\";\n}\n"
        "lease 192.168.8.132 {\n  ends never;\n  hardware ethernet "
        "02:00:00:00:00:0c;\n}\n"
        "lease 192.168.8.133 {\n  ends 4 2027/01/15 09:00:00;\n  binding state active;\n}\n"
        "lease 192.168.8.133 {\n  ends 4 2027/01/15 09:00:00;\n  binding state free;\n}\n"
        "lease 192.168.8.134 {\n  ends 4 2027/01/15 09:00:00;\n  bind",
        "1800001200 02:00:00:00:00:0b 192.168.8.131 we&b.c-d_ 01:02:00:00:00:00:0b\n0 02:00:00:00:00:0c "
        "192.168.8.132 * *\n"
        "1799999999 02:00:00:00:00:0a 192.168.8.130 old *\nduid 00:01\nrubbish\n0 x nowhere *\n"};
    for (const std::string &text : texts) {
        const std::vector<Lease> leases = ParseLeases(text, NOW);
        ASSERT_EQ(2U, leases.size()) << text;
        EXPECT_EQ("192.168.8.131", AddressText(leases[0].address));
        EXPECT_EQ("02:00:00:00:00:0B", leases[0].mac);
        EXPECT_EQ("we?b.c-d_", leases[0].name);
        EXPECT_EQ(&text == &texts[0] ? std::optional<time_t>(NOW - 600) : std::nullopt, leases[0].from);
        EXPECT_EQ(NOW + 1200, leases[0].until);
        EXPECT_EQ("", leases[1].name);
        EXPECT_EQ(std::nullopt, leases[1].until);
    }
}

TEST(EditorModel, MappingsAreWhatTheReplayLeaves) {
    EXPECT_THAT(
        ReplayMappings(
            "VERSION=1,0\nadd_bridge_mapping eth1 3\nadd_bridge_mapping eth2 2\n"
            "remove_bridge_mapping ETH1\nadd_bridge_mapping Eth2 -1\nadd_bridge_mapping eth3\n"
            "add_bridge_mapping eth4 256\nadd_bridge_mapping eth5 255\nanswer add_bridge_mapping 4\n"),
        ElementsAre(Pair("Eth2", -1), Pair("eth5", 255)));
}

TEST(EditorModel, GuestsAreThePortsThatNobodyOfUsHasMade) {
    KernelView kernel;
    const auto add = [&kernel](int index, const char *name, int master, uint32_t group) {
        Link link;
        link.index = index;
        link.name = name;
        link.master = master;
        link.group = group;
        kernel.links.push_back(link);
    };
    add(1, "zelan-sw8", 0, GROUP_CARRIER);
    add(2, "zelan-up8", 1, GROUP_CARRIER);
    add(3, "tap0", 1, 0);
    add(4, "vnet1", 1, 0);
    add(5, "tap1", 9, 0);
    add(6, "zelan8", 1, GROUP_UPLINK);
    add(7, "tap2", 1, GROUP_UPLINK + 1);
    kernel.links[2].receivedBytes = 7;
    kernel.links[2].sentPackets = 9;
    kernel.learned = {{3, "02:00:00:00:00:02"},
                      {3, "02:00:00:00:00:01"},
                      {2, "02:00:00:00:00:03"},
                      {7, "02:00:00:00:00:04"}};
    const Lease leases[] = {{0x0a070809, "02:00:00:00:00:02", "web", {}, {}, false}};
    const Reservation ties[] = {{"02:00:00:00:00:02", 0x0a070807}, {"02:00:00:00:00:04", 0x0a070808}};
    std::string text;
    for (const Guest &guest : GuestsOf(kernel, 8, leases, ties)) {
        text += guest.port + " " + guest.mac + " " + AddressText(guest.address.value_or(0)) + " " +
                guest.name + " " + std::to_string(guest.sentBytes) + " " +
                std::to_string(guest.receivedPackets) + "\n";
    }
    EXPECT_EQ(
        "tap0 02:00:00:00:00:01 0.0.0.0  7 9\ntap0 02:00:00:00:00:02 10.7.8.9 web 7 9\n"
        "tap2 02:00:00:00:00:04 10.7.8.8  0 0\nvnet1  0.0.0.0  0 0\n",
        text);
    EXPECT_THAT(GuestsOf(kernel, 9, leases, ties), IsEmpty());
}

TEST(EditorText, SaysAllSettingsAndIsReadBack) {
    NetworkConfig config;
    for (const char *word : {"subnet=10.7.8.0/24", "dhcp=on", "range=10.7.8.9-10.7.8.20", "domain=a.b"}) {
        EXPECT_EQ("", Assign(word, &config));
    }
    config.stored[FIELD_ANY_OUI] = "0";  // which the text has no word for
    config.forwards = {{true, 8888, 0x0a070809, 80, "web server"}, {false, 53, 0x0a070809, 5353, ""}};
    config.reservations = {{"02:00:00:00:00:01", 0x0a070809}};
    EXPECT_EQ(
        "# zelan8; a key in a comment is at its "
        "default\nsubnet=10.7.8.0/24\ndhcp=on\n#nat=off\n#adapter=off\n"
        "#adapter-address=10.7.8.1\n#adapter-name=zelan8\nrange=10.7.8.9-10.7.8.20\n#lease-time=1800\n"
        "#max-lease-time=7200\n#dns=10.7.8.1\ndomain=a.b\n#routers=10.7.8.2\n#gateway=10.7.8.2\n"
        "#active-ftp=on\n#udp-timeout=60\n\n# forward tcp|udp PORT ADDRESS:PORT [NOTE]\n"
        "forward tcp 8888 10.7.8.9:80 web server\nforward udp 53 10.7.8.9:5353\n\n# reserve MAC ADDRESS\n"
        "reserve 02:00:00:00:00:01 10.7.8.9\n",
        EditText(8, config));
    NetworkConfig read = config;
    EXPECT_EQ("", Assign("lease-time=60", &read));
    EXPECT_EQ("", ReadEditText(EditText(8, config), &read));
    EXPECT_EQ(config, read);
    const std::string forward = ": a forward is: forward tcp|udp PORT ADDRESS:PORT [NOTE]\n";
    EXPECT_EQ(
        "line 1" + forward + "line 2" + forward + "line 3" + forward + "line 4" + forward + "line 5" +
            forward +
            "line 7: udp port 65535 stands here twice\nline 8: a reservation is: reserve MAC ADDRESS\n"
            "line 9: a reservation is: reserve MAC ADDRESS\nline 11: 02:00:00:00:00:01 stands here twice\n",
        ReadEditText("forward sctp 1 10.7.8.9:1\nforward tcp 0 10.7.8.9:1\nforward tcp 1 10.7.8:1\n"
                     "forward tcp 1 10.7.8.9:0\nforward udp 1 10.7.8.9\nforward udp 65535 10.7.8.9:65535\n"
                     "forward udp 65535 10.7.8.9:1\nreserve 2:0 10.7.8.9\nreserve 2:0:0:0:0:1 10\n"
                     "reserve 2:0:0:0:0:1 10.7.8.9\nreserve 02:0:0:0:0:1 10.7.8.8\n",
                     &read));
}

}  // namespace
