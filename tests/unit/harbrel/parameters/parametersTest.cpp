// The parameters of DHCP and NAT by internal id: defaults, reading, setting, removing.
#include <gmock/gmock.h>

#include <algorithm>
#include <regex>
#include <set>
#include <string>

#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/dhcp/dhcpParameters.h"
#include "lib/harbrel/nat/natParameters.h"
#include "lib/harbrel/networks/settings.h"
#include "tests/support/logCapture.h"
#include "tests/support/openCache.h"

namespace {

// The internal functions of one service.
struct Service {
    std::span<const ParameterRow> rows;
    bool (*get)(uint32_t vnet, uint32_t id, bool useDefault, char *buffer, size_t size);
    bool (*set)(uint32_t vnet, uint32_t id, const char *value);
};
const Service D = {HBLDHCPParameterRows(), HBLDHCPGetParameter, HBLDHCPSetParameter};
const Service N = {HBLNATParameterRows(), HBLNATGetParameter, HBLNATSetParameter};

// The value or its default, or "-" when the read is refused and has left the buffer alone.
std::string Read(const Service &service, uint32_t id) {
    char text[64] = "-";
    const bool read = service.get(8, id, true, text, sizeof text);
    EXPECT_EQ(!read, std::string(text) == "-") << id;
    return text;
}

std::string ReadAll(const Service &service, std::initializer_list<uint32_t> ids) {
    std::string values;
    for (const uint32_t id : ids) {
        values.append(values.empty() ? "" : " ").append(Read(service, id));
    }
    return values;
}

// Stores a value for each parameter, with no regard to what the setters accept.
void StoreAll(const Service &service) {
    for (const ParameterRow &row : service.rows) {
        if (row.key[0] != '\0') {
            ASSERT_TRUE(HBLSetVnetCfg(8, row.key, "1"));
        }
    }
}

std::string StoredKeys(const Service &service) {
    std::string keys;
    for (const ParameterRow &row : service.rows) {
        if (row.key[0] != '\0' && HBLGetVnetCfg(8, row.key).has_value()) {
            keys.append(row.key).append(" ");
        }
    }
    return keys;
}

TEST(ParameterDefaults, AddressesFollowFromSubnetMaskAndNat) {
    const struct {
        const char *subnet, *mask;
        bool nat;
        const char *dhcp;  // begin, end, broadcast, DNS, routers
        const char *gateway;
        const char *log;
    } cases[] = {
        {"192.168.10.0", "255.255.255.0", false,
         "192.168.10.129 192.168.10.254 192.168.10.255 192.168.10.1 192.168.10.2", "192.168.10.2", ""},
        {"192.168.10.7", "255.255.255.0", true,
         "192.168.10.129 192.168.10.254 192.168.10.255 192.168.10.2 192.168.10.2", "192.168.10.9", ""},
        {"10.0.0.8", "255.255.255.248", false, "10.0.0.13 10.0.0.14 10.0.0.15 10.0.0.9 10.0.0.10",
         "10.0.0.10", ""},
        {"10.0.0.0", "255.255.255.252", true, "- - - - -", "10.0.0.2",
         "The subnet: 10.0.0.0, mask: 255.255.255.252 is too small, we need atleast 8 hosts\n"},
        {"10.0.0.0", nullptr, true, "- - - - -", "10.0.0.2", "Cannot obtain subnet netmask\n"},
        {nullptr, "255.0.0.0", true, "- - - - -", "-", "Cannot obtain subnet address\n"},
    };
    for (const auto &row : cases) {
        const OpenCache cache;
        EXPECT_TRUE(row.subnet == nullptr || HBLSetVnetSubnetAddr(8, row.subnet));
        EXPECT_TRUE(row.mask == nullptr || HBLSetVnetSubnetMask(8, row.mask));
        EXPECT_TRUE(HBLSetVnetCfgBool(8, VNET_FIELD_NAT, row.nat));
        SCOPED_TRACE(row.dhcp);
        EXPECT_EQ(row.dhcp, ReadAll(D, {9542, 9543, 9548, 9549, 9550}));
        EXPECT_EQ(row.gateway, Read(N, HBL_NAT_PARAM_GATEWAY_IP));
        EXPECT_EQ(row.mask != nullptr ? row.mask : "-", Read(N, HBL_NAT_PARAM_GATEWAY_NETMASK));
        EXPECT_EQ("1800 7200 localdomain 1800 7200", ReadAll(D, {9546, 9547, 9551, 9552, 9553}));
        EXPECT_EQ("33445 1 1 /dev/zelan8 60", ReadAll(N, {13862, 13863, 13864, 13865, 13866}));
        LogCapture log;
        char text[16];
        EXPECT_EQ(*row.log == '\0', HBLDHCPGetParameterDefault(8, 9542, text, sizeof text));
        EXPECT_EQ(*row.log == '\0' ? "" : "HBLDHCPGetParameterDefault - " + std::string(row.log), log.Take());
    }
}

TEST(ParameterSet, StoresWhatItsFormAllowsAsItIs) {
    const std::string longName(64, 'n');
    const struct {
        const Service &service;
        uint32_t id;
        std::string value;
        bool accepted;
    } cases[] = {
        {D, 9542, "010.001.002.003", true},
        {D, 9542, "0010.001.002.003", false},
        {D, 9551, longName, false},
        {D, 9552, "0x708", true},
        {D, 9553, "2147483648", false},
        {D, 9547, "", false},
        {D, 9555, "1", false},
        {N, 13859, "10.0.0.1", true},
        {N, 13862, "0x8000", true},
        {N, 13862, "0", false},
        {N, 13862, "65536", false},
        {N, 13863, "2", false},
        {N, 13864, "00", false},
        {N, 13866, "00", true},
        {N, 13860, "255.255.255.0", false},
    };
    for (const auto &row : cases) {
        const OpenCache cache;
        SCOPED_TRACE(testing::Message() << row.id << " " << row.value);
        LogCapture log;
        EXPECT_EQ(row.accepted, row.service.set(8, row.id, row.value.c_str()));
        EXPECT_EQ(row.accepted, log.Take().empty());
        const auto parameter = std::ranges::find(row.service.rows, row.id, &ParameterRow::id);
        const auto stored =
            parameter != row.service.rows.end() ? HBLGetVnetCfg(8, parameter->key) : std::nullopt;
        EXPECT_EQ(row.accepted ? row.value : "-", stored.value_or("-"));
    }
}

// Without NAT the routers stay. On a full disk every record stays, with a line for each.
TEST(ParameterRemove, CleanUpTakesEverythingOfItsService) {
    for (const bool nat : {false, true}) {
        const OpenCache cache(
            "add_dhcp_mac_to_ip 8 02:00:00:01:02:03 10.0.0.50\nadd_nat_portfwd 8 tcp 80 10.0.0.50 80\n"
            "answer VNET_8_DHCP_CFG_HASH AB\n");
        StoreAll(D);
        StoreAll(N);
        EXPECT_TRUE(HBLSetVnetCfgBool(8, VNET_FIELD_NAT, nat));
        const std::string keys = StoredKeys(D) + StoredKeys(N);
        LogCapture logged;
        EXPECT_FALSE(cache.WithRoomFor(0, [] { return HBLDHCPRemoveDHCPConfig(8); }));
        EXPECT_FALSE(cache.WithRoomFor(0, [] { return HBLNATRemoveConfig(8); }));
        EXPECT_EQ(keys, StoredKeys(D) + StoredKeys(N));
        static const std::regex FAILURE("HBL(DHCPRemoveDHCPConfig|NATRemoveConfig) - [^\n]*");
        const std::string log = logged.Take();
        const std::set<std::string> failures(std::sregex_token_iterator(log.begin(), log.end(), FAILURE), {});
        EXPECT_EQ(std::ranges::count(keys, ' ') - (nat ? 0 : 1), std::ssize(failures)) << log;
        EXPECT_TRUE(HBLDHCPRemoveDHCPConfig(8));
        EXPECT_EQ(nat ? "" : "DHCP_PARAM_ROUTERS ", StoredKeys(D));
        EXPECT_EQ(std::nullopt, HBLGetVnetCfg(8, VNET_FIELD_DHCP_CFG_HASH));
        EXPECT_TRUE(HBLNATRemoveConfig(8));
        EXPECT_EQ("", StoredKeys(N));
        char ip[16];
        uint16_t port;
        EXPECT_FALSE(HBLNetCfgLookupDHCPMACToIP(nullptr, 8, "02:00:00:01:02:03", ip, sizeof ip));
        EXPECT_FALSE(HBLNetCfgLookupNATPortFwd(nullptr, 8, true, 80, ip, sizeof ip, &port, nullptr, nullptr));
    }
}

}  // namespace
