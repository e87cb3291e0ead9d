// The editor's readers: what people write, and what DHCP servers and the database leave behind.
#include <gmock/gmock.h>

#include "apps/zelan/posix/harbrelctl/model/guests.h"
#include "apps/zelan/posix/harbrelctl/model/keys.h"
#include "apps/zelan/posix/harbrelctl/model/readHost.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

TEST(EditorModel, WordsAreReadWholeOrRefused) {
    const struct {
        const char *text;
        const char *subnet;  // null when refused
    } subnets[] = {{"192.168.8.0/24", "192.168.8.0/24"},
                   {"10.0.0.8/29", "10.0.0.8/29"},
                   {"0.0.0.0/0", "0.0.0.0/0"},
                   {"192.168.8.1/24", nullptr},
                   {"192.168.8.0", nullptr},
                   {"192.168.8.0/33", nullptr},
                   {"192.168.8/24", nullptr},
                   {"192.168.8.0/24 ", nullptr},
                   {"192.168.8.0/-1", nullptr}};
    for (const auto &row : subnets) {
        const auto subnet = ParseSubnet(row.text);
        EXPECT_EQ(row.subnet != nullptr, subnet.has_value()) << row.text;
        EXPECT_EQ(row.subnet != nullptr ? row.subnet : "", subnet ? SubnetText(*subnet) : "") << row.text;
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
    const struct {
        const char *assignment;
        Field field;
        const char *stored;
        const char *error;
    } cases[] = {
        {"subnet=10.1.0.0/16", FIELD_MASK, "255.255.0.0", ""},
        {"range=10.1.0.9-10.1.0.20", FIELD_RANGE_LAST, "10.1.0.20", ""},
        {"domain=lab.example.org", FIELD_DOMAIN, "\"lab.example.org\"", ""},
        {"domain=lab", FIELD_DOMAIN, "lab", ""},
        {"nat=yes", FIELD_NAT, "yes", ""},
        {"active-ftp=off", FIELD_ACTIVE_FTP, "0", ""},
        {"dhcp=maybe", FIELD_DHCP, "", "dhcp \"maybe\" is not allowed: on or off"},
        {"lease-time=1h", FIELD_COUNT, "", "lease-time \"1h\" is not allowed: seconds, 0 to 999999999"},
        {"lease-time", FIELD_COUNT, "", "\"lease-time\" is no KEY=VALUE"},
    };
    for (const auto &row : cases) {
        NetworkConfig config;
        EXPECT_EQ(row.error, Assign(row.assignment, &config)) << row.assignment;
        if (row.field != FIELD_COUNT) {
            EXPECT_EQ(row.stored, config.stored[row.field].value_or("")) << row.assignment;
        }
    }
}

TEST(EditorModel, LeasesOfBothServersAreTheValidOnes) {
    constexpr time_t NOW = 1800000000;  // 2027-01-15 08:00:00 in UTC
    const std::string isc =
        "# The format of this file is documented\nauthoring-byte-order little-endian;\n\n"
        "lease 192.168.8.130 {\n  starts 4 2027/01/15 07:00:00;\n  ends 4 2027/01/15 07:30:00;\n"
        "  binding state active;\n  hardware ethernet 02:00:00:00:00:0a;\n}\n"
        "lease 192.168.8.131 {\n  starts 4 2027/01/15 07:50:00;\n  ends 4 2027/01/15 08:20:00;\n"
        "  binding state active;\n  next binding state free;\n  hardware ethernet 02:00:00:00:00:0b;\n"
        "  client-hostname \"web\";\n}\n"
        "lease 192.168.8.132 {\n  ends never;\n  binding state active;\n  hardware ethernet "
        "02:00:00:00:00:0c;\n}\n"
        "lease 192.168.8.133 {\n  ends 4 2027/01/15 09:00:00;\n  binding state active;\n}\n"
        "lease 192.168.8.133 {\n  ends 4 2027/01/15 09:00:00;\n  binding state free;\n}\n"
        "lease 192.168.8.134 {\n  ends 4 2027/01/15 09:00:00;\n  bind";
    const std::string list =
        "1800001200 02:00:00:00:00:0b 192.168.8.131 web 01:02:00:00:00:00:0b\n0 02:00:00:00:00:0c "
        "192.168.8.132 * *\n"
        "1799999999 02:00:00:00:00:0a 192.168.8.130 old *\nduid 00:01\nrubbish\n";
    for (const std::string &text : {isc, list}) {
        const std::vector<Lease> leases = ParseLeases(text, NOW);
        ASSERT_EQ(2U, leases.size()) << text;
        EXPECT_EQ("192.168.8.131", AddressText(leases[0].address));
        EXPECT_EQ("02:00:00:00:00:0B", leases[0].mac);
        EXPECT_EQ("web", leases[0].name);
        EXPECT_EQ(NOW + 1200, leases[0].until);
        EXPECT_EQ("", leases[1].name);
        EXPECT_EQ(std::nullopt, leases[1].until);
    }
    EXPECT_THAT(ParseLeases("", NOW), IsEmpty());
}

TEST(EditorModel, MappingsAreWhatTheReplayLeaves) {
    EXPECT_THAT(
        ReplayMappings("VERSION=1,0\nadd_bridge_mapping eth1 3\nadd_bridge_mapping eth2 2\n"
                       "remove_bridge_mapping ETH1\nadd_bridge_mapping Eth2 -1\nadd_bridge_mapping eth3\n"
                       "add_bridge_mapping eth4 256\nanswer add_bridge_mapping 4\n"),
        ElementsAre(Pair("Eth2", -1)));
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
    kernel.links[2].receivedBytes = 7;
    kernel.learned = {{3, "02:00:00:00:00:01"}, {3, "02:00:00:00:00:02"}, {2, "02:00:00:00:00:03"}};
    const Lease leases[] = {
        {ParseAddress("192.168.8.9").value_or(0), "02:00:00:00:00:02", "web", {}, {}, false}};
    const std::vector<Guest> guests = GuestsOf(kernel, 8, leases, {});
    ASSERT_EQ(3U, guests.size());
    EXPECT_EQ("tap0", guests[1].port);
    EXPECT_EQ("web", guests[1].name);
    EXPECT_EQ(7U, guests[1].sentBytes);
    EXPECT_EQ("vnet1", guests[2].port);
    EXPECT_EQ("", guests[2].mac);
}

}  // namespace
