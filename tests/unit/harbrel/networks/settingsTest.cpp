#include "lib/harbrel/networks/settings.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/support/logCapture.h"
#include "tests/support/openCache.h"

TEST(VnetSettings, WritingTheValueThatABooleanReadsAsStoresNothing) {
    const OpenCache cache("answer VNET_8_NAT YES\nanswer VNET_9_NAT true\n");
    const std::string before = ReadFileText(cache.Database());
    EXPECT_TRUE(HBLVnetUsesNAT(8));
    EXPECT_FALSE(HBLVnetUsesNAT(9));
    EXPECT_TRUE(HBLSetVnetCfgBool(8, VNET_FIELD_NAT, true));
    EXPECT_TRUE(HBLSetVnetCfgBool(8, VNET_FIELD_DHCP, false));
    EXPECT_EQ(std::nullopt, HBLGetVnetCfg(8, VNET_FIELD_DHCP));
    EXPECT_EQ(before, ReadFileText(cache.Database()));
    EXPECT_TRUE(HBLSetVnetCfgBool(8, VNET_FIELD_DHCP, true));
    EXPECT_TRUE(HBLVnetUsesDHCP(8));
}

TEST(VnetSettings, AdapterHasItsStoredNameAndAddressOrTheComputedOnes) {
    const OpenCache cache(
        "answer VNET_1_HOSTONLY_SUBNET 192.168.40.0\nanswer VNET_2_VIRTUAL_ADAPTER_NAME fifteen-letters\n"
        "answer VNET_2_VIRTUAL_ADAPTER_ADDR 10.0.0.9\nanswer VNET_2_HOSTONLY_SUBNET 192.168.40.0\n"
        "answer VNET_3_HOSTONLY_SUBNET nonsense\n");
    const struct {
        uint32_t vnet;
        size_t size;
        const char *name, *stored, *orComputed;  // "-": refused
        const char *log;
    } cases[] = {
        {1, 16, "zelan1", "-", "192.168.40.1", ""},
        {1, 12, "zelan1", "-", "-", "Insufficient buffer length: 12 for adapter address\n"},
        {1, 6, "-", "-", "-", "Insufficient buffer length: 6 for adapter address\n"},
        {2, 16, "fifteen-letters", "10.0.0.9", "10.0.0.9", ""},
        {2, 15, "-", "10.0.0.9", "10.0.0.9", ""},
        {2, 8, "-", "-", "-", ""},
        {3, 16, "zelan3", "-", "-", "Could not calculate adapter address\n"},
        {4, 16, "zelan4", "-", "-", "Getting Subnet Address failed\n"},
    };
    LogCapture log;
    for (const auto &row : cases) {
        SCOPED_TRACE(testing::Message() << row.vnet << " " << row.size);
        char out[16] = "-";
        EXPECT_EQ(*row.name != '-', HBLGetVnetVirtAdapterName(row.vnet, out, row.size));
        EXPECT_STREQ(row.name, out);
        strcpy(out, "-");
        EXPECT_EQ(*row.stored != '-', HBLGetVnetVirtAdapterAddr(row.vnet, out, row.size, false));
        EXPECT_STREQ(row.stored, out);
        log.Take();
        strcpy(out, "-");
        EXPECT_EQ(*row.orComputed != '-', HBLGetVnetVirtAdapterAddr(row.vnet, out, row.size, true));
        EXPECT_STREQ(row.orComputed, out);
        EXPECT_TRUE(log.Take().ends_with(row.log));
    }
}

TEST(VnetSubnet, ContainsAddressesUnderItsMask) {
    const OpenCache cache(
        "answer VNET_1_HOSTONLY_SUBNET 192.168.40.0\nanswer VNET_1_HOSTONLY_NETMASK 255.255.255.0\n"
        "answer VNET_2_HOSTONLY_SUBNET 192.168.40.5\nanswer VNET_2_HOSTONLY_NETMASK 255.255.255.0\n"
        "answer VNET_3_HOSTONLY_SUBNET 192.168.40.0\n");
    const struct {
        uint32_t vnet;
        const char *address;
        bool belongs;
        const char *log;
    } cases[] = {
        {1, "192.168.40.255", true, ""},
        {1, "192.168.41.0", false, ""},
        {2, "192.168.40.5", false, ""},
        {1, "192.168.40", false, "HBLIPStr2Int - sscanf failed\n"},
        {3, "192.168.40.1", false, "HBLIPBelongsToSubnet - Getting subnet address failed\n"},
        {4, "192.168.40.1", false, "HBLIPBelongsToSubnet - Getting subnet address failed\n"},
    };
    LogCapture log;
    for (const auto &row : cases) {
        EXPECT_EQ(row.belongs, HBLIPBelongsToSubnet(row.vnet, row.address)) << row.vnet << row.address;
        EXPECT_EQ(row.log, log.Take());
    }
}
