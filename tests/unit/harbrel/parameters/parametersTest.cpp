// The parameters of DHCP and NAT by internal id: defaults, reading, setting, removing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/dhcp/dhcp.h"
#include "lib/harbrel/dhcp/dhcpConfigFile.h"
#include "lib/harbrel/dhcp/dhcpParameters.h"
#include "lib/harbrel/nat/nat.h"
#include "lib/harbrel/nat/natParameters.h"
#include "lib/harbrel/networks/settings.h"
#include "tests/support/fileSizeLimit.h"
#include "tests/support/logCapture.h"
#include "tests/support/openCache.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;

const ParameterFamily &D = HBLDHCPParameters();
const ParameterFamily &N = HBLNATParameters();

// The value as read, or "-" when the read is refused and has left the buffer alone.
std::string Read(const ParameterFamily &family, uint32_t id, bool useDefault = true, size_t size = 64) {
    char text[64] = "-";
    const bool read = family.get(8, id, useDefault, text, size);
    EXPECT_EQ(!read, std::string(text) == "-") << id;
    return text;
}

std::string ReadAll(const ParameterFamily &family, std::initializer_list<uint32_t> ids) {
    std::string values;
    for (const uint32_t id : ids) {
        values.append(values.empty() ? "" : " ").append(Read(family, id));
    }
    return values;
}

// Stores a value for each parameter, with no regard to what the setters accept.
void StoreAll(const ParameterFamily &family) {
    for (const ParameterRow &row : family.rows) {
        if (row.key[0] != '\0') {
            ASSERT_TRUE(HBLSetVnetCfg(8, row.key, "1"));
        }
    }
}

std::string StoredKeys(const ParameterFamily &family) {
    std::string keys;
    for (const ParameterRow &row : family.rows) {
        if (row.key[0] != '\0' && HBLGetVnetCfg(8, row.key) != nullptr) {
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
        const char *log;  // the last line
    } cases[] = {
        {"192.168.10.0", "255.255.255.0", false,
         "192.168.10.129 192.168.10.254 192.168.10.255 192.168.10.1 192.168.10.2", "192.168.10.2", ""},
        {"192.168.10.7", "255.255.255.0", true,
         "192.168.10.129 192.168.10.254 192.168.10.255 192.168.10.2 192.168.10.2", "192.168.10.9", ""},
        {"10.0.0.8", "255.255.255.248", false, "10.0.0.13 10.0.0.14 10.0.0.15 10.0.0.9 10.0.0.10",
         "10.0.0.10", ""},
        {"172.16.0.0", "255.255.0.0", true,
         "172.16.128.1 172.16.255.254 172.16.255.255 172.16.0.2 172.16.0.2", "172.16.0.2", ""},
        {"10.0.0.0", "255.255.255.252", true, "- - - - -", "10.0.0.2",
         "The subnet: 10.0.0.0, mask: 255.255.255.252 is too small, we need atleast 8 hosts\n"},
        {"10.0.0", "255.255.255.0", true, "- - - - -", "-", "HBLIPStr2Int - sscanf failed\n"},
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
        EXPECT_EQ(row.log[0] == '\0', HBLDHCPGetParameterDefault(8, 9542, text, sizeof text));
        EXPECT_THAT(log.Take(), EndsWith(row.log));
    }
}

struct ReadCase {
    const ParameterFamily &family;
    uint32_t id;
    const char *stored;  // of the domain name or the timeout; null: nothing
    bool useDefault;
    size_t size;
    const char *value;
    const char *log;  // what is among the lines
};

TEST(ParameterRead, TakesTheStoredValueOrOnDemandTheDefault) {
    static constexpr char MISSING[] = "\"Domain Name\" not found in configuration for vnet: 8\n";
    const ReadCase cases[] = {
        {D, 9551, "lab", true, 4, "lab", ""},
        {D, 9551, "lab", true, 3, "-",
         "HBLDHCPGetParameter - Insufficient space 3 to store value of DHCP parameter: \"Domain Name\", "
         "required: 4\n"},
        {D, 9551, nullptr, false, 64, "-", MISSING},
        {D, 9551, nullptr, true, 12, "localdomain", MISSING},
        {D, 9551, nullptr, true, 4, "-",
         "HBLDHCPGetParameterDefault - Insufficient buffer size: 4 for DHCP parameter: \"Domain Name\" "
         "required: "
         "12\nHBLDHCPGetParameter - Failure in getting default value of parameter\n"},
        {D, 9544, nullptr, true, 64, "-", "HBLDHCPGetParameterDefault - Invalid DHCP Param Name 9544\n"},
        {D, 9557, nullptr, true, 64, "-",
         "Invalid DHCP Parameter not found in configuration for vnet: 8\n"
         "HBLDHCPGetParameterDefault - Invalid DHCP Param Name 9557\n"},
        {N, 13866, "00", true, 3, "00", ""},
        {N, 13866, "00", true, 2, "-", "HBLNATGetParameter - Insufficient space to store NAT param 13866.\n"},
        {N, 13866, nullptr, false, 64, "-", ""},
        {N, 13866, nullptr, true, 2, "-",
         "HBLNATGetParamDefault - Insufficient space to store NAT param 13866.\n"
         "HBLNATGetParameter - Failure in getting default value of parameter\n"},
        {N, 13867, nullptr, true, 64, "-", "HBLNATGetParamDefault - Unrecognized NAT parameter ID: 13867\n"},
        {N, 13868, nullptr, true, 64, "-", "HBLNATGetParameter - Unrecognized NAT parameter ID: 13868\n"},
    };
    for (const ReadCase &row : cases) {
        const OpenCache cache;
        if (row.stored != nullptr) {
            EXPECT_TRUE(HBLSetVnetCfg(8, HBLFindParameter(row.family, row.id)->key, row.stored));
        }
        LogCapture log;
        EXPECT_EQ(row.value, Read(row.family, row.id, row.useDefault, row.size)) << row.id;
        const std::string lines = log.Take();
        EXPECT_THAT(lines, HasSubstr(row.log));
        EXPECT_EQ(row.log[0] == '\0', lines.empty());
    }
    const OpenCache cache;
    LogCapture log(LOG_INFO2);
    Read(D, HBL_DHCP_PARAM_DOMAIN_NAME);
    EXPECT_THAT(log.Take(), HasSubstr("HBLDHCPGetParameterDefault -  Entering Function"));
}

TEST(ParameterSet, StoresWhatItsFormAllowsAsItIs) {
    const std::string longName(64, 'n');
    const struct {
        const ParameterFamily &family;
        uint32_t id;
        std::string value;
        bool accepted;
    } cases[] = {
        {D, 9542, "010.001.002.003", true},
        {D, 9542, "0010.001.002.003", false},
        {D, 9550, "10.0.0.256", false},
        {D, 9551, longName.substr(1), true},
        {D, 9551, longName, false},
        {D, 9552, "0x708", true},
        {D, 9553, "2147483647", true},
        {D, 9553, "2147483648", false},
        {D, 9546, "-1", false},
        {D, 9547, "", false},
        {D, 9541, "1", false},
        {D, 9544, "1", false},
        {D, 9555, "1", false},
        {N, 13859, "10.0.0.1", true},
        {N, 13859, "10.0.0", false},
        {N, 13862, "0x8000", true},
        {N, 13862, "0", false},
        {N, 13862, "65535", true},
        {N, 13862, "65536", false},
        {N, 13863, "0", true},
        {N, 13863, "2", false},
        {N, 13864, "00", false},
        {N, 13866, "00", true},
        {N, 13866, "-5", false},
        {N, 13860, "255.255.255.0", false},
        {N, 13861, "1", false},
        {N, 13865, "/dev/x", false},
    };
    for (const auto &row : cases) {
        const OpenCache cache;
        SCOPED_TRACE(testing::Message() << row.id << " " << row.value);
        LogCapture log;
        EXPECT_EQ(row.accepted, row.family.set(8, row.id, row.value.c_str()));
        EXPECT_EQ(row.accepted, log.Take().empty());
        const ParameterRow *parameter = HBLFindParameter(row.family, row.id);
        const char *stored = parameter != nullptr ? HBLGetVnetCfg(8, parameter->key) : nullptr;
        EXPECT_EQ(row.accepted ? row.value : "-", stored != nullptr ? stored : "-");
    }
}

TEST(ParameterIds, OfCallersMapToInternalOnes) {
    const struct {
        const ParameterFamily &family;
        uint32_t external, internal;
    } cases[] = {{D, 13349, 9554}, {D, 13350, 9542}, {D, 13351, 9543}, {D, 13352, 9554}, {D, 13353, 9554},
                 {D, 13354, 9552}, {D, 13355, 9553}, {D, 13356, 9555}, {D, 0, 9554},     {N, 9027, 13859},
                 {N, 9028, 13867}, {N, 9029, 13867}, {N, 9030, 13862}, {N, 9031, 13863}, {N, 9032, 13864},
                 {N, 9033, 13866}, {N, 9034, 13867}, {N, 0, 13867}};
    for (const auto &row : cases) {
        EXPECT_EQ(row.internal, row.family.mapExternal(row.external)) << row.external;
    }
}

TEST(ParameterRemove, KnowsItsIdsAndTakesAnAbsentKeyForRemoved) {
    const OpenCache cache(
        "answer VNET_8_DHCP_PARAM_ROUTERS 10.0.0.2\nanswer VNET_8_NAT_PARAM_DEVICE /dev/x\n");
    for (uint32_t id = 9538; id <= 9555; id++) {
        EXPECT_EQ(id >= 9539 && id <= 9554, HBLDHCPRemoveParameter(8, id)) << id;
    }
    for (uint32_t id = 13858; id <= 13868; id++) {
        EXPECT_EQ(id >= 13859 && id <= 13867, HBLNATRemoveParam(8, id)) << id;
    }
    EXPECT_EQ("", StoredKeys(D) + StoredKeys(N));
}

TEST(ParameterRemove, CleanUpLeavesTheRoutersWhileNatIsOff) {
    for (const bool nat : {false, true}) {
        const OpenCache cache(
            "add_dhcp_mac_to_ip 8 02:00:00:01:02:03 10.0.0.50\nadd_nat_portfwd 8 tcp 80 10.0.0.50 80\n"
            "answer VNET_8_DHCP_CFG_HASH AB\n");
        StoreAll(D);
        StoreAll(N);
        EXPECT_TRUE(HBLSetVnetCfgBool(8, VNET_FIELD_NAT, nat));
        EXPECT_TRUE(HBLDHCPRemoveDHCPConfig(8));
        EXPECT_EQ(nat ? "" : "DHCP_PARAM_ROUTERS ", StoredKeys(D));
        EXPECT_EQ(nullptr, HBLGetVnetCfg(8, VNET_FIELD_DHCP_CFG_HASH));
        EXPECT_TRUE(HBLNATRemoveConfig(8));
        EXPECT_EQ("", StoredKeys(N));
        char ip[16];
        uint16_t port;
        EXPECT_FALSE(HBLNetCfgLookupDHCPMACToIP(nullptr, 8, "02:00:00:01:02:03", ip, sizeof ip));
        EXPECT_FALSE(HBLNetCfgLookupNATPortFwd(nullptr, 8, true, 80, ip, sizeof ip, &port, nullptr, nullptr));
    }
}

TEST(ParameterRemove, CleanUpGoesOnAfterEachFailureAndOnlyDhcpFailsTheSwitch) {
    // The database is larger than the log gets, so that its limit does not reach the log.
    std::string padding;
    for (int i = 0; i < 50; i++) {
        padding += "answer PADDING_" + std::to_string(i) + " " + std::string(1000, '.') + "\n";
    }
    const OpenCache cache(padding + "answer VNET_8_DHCP yes\nanswer VNET_8_NAT yes\n");
    StoreAll(D);
    StoreAll(N);
    const FileSizeLimit full(std::filesystem::file_size(cache.Database()));
    LogCapture log(LOG_ERR | LOG_INFO);
    EXPECT_FALSE(HBLSetVnetUseDHCP(8, true, true));
    const std::string dhcp = log.Take();
    EXPECT_THAT(dhcp, HasSubstr("Failure in deleting DHCP parameter Lease Start IP\n"));
    EXPECT_THAT(dhcp, HasSubstr("Failure in deleting DHCP subnet parameter max lease time\n"));
    EXPECT_THAT(dhcp, EndsWith("HBLSetVnetUseDHCP - Error removing DHCP configuration informtion\n"));
    EXPECT_TRUE(HBLSetVnetUseNAT(8, true, true));
    const std::string nat = log.Take();
    EXPECT_THAT(nat, HasSubstr("Failure while removing value for NAT parameter Gateway IP Address\n"));
    EXPECT_THAT(nat, HasSubstr("Failure while setting value for NAT parameter UDP timeout\n"));
    EXPECT_THAT(nat, EndsWith("HBLSetVnetUseNAT - Error removing NAT coniguration information\n"));
    EXPECT_FALSE(HBLSetVnetUseNAT(8, false, false));
    EXPECT_TRUE(HBLVnetUsesNAT(8));
}

}  // namespace
