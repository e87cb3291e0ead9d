#include "lib/harbrel/networks/settings.h"

#include <gtest/gtest.h>

#include <string>

#include "lib/harbrel/bridging/bridging.h"
#include "lib/harbrel/cache/cache.h"
#include "tests/support/logCapture.h"
#include "tests/support/openCache.h"

namespace {

TEST(VnetSettings, CopyReportsTheLengthThatIsNeeded) {
    const OpenCache cache("answer VNET_8_HOSTONLY_SUBNET 192.168.40.0\n");
    const struct {
        const char *field;
        size_t sizeIn;
        bool copied;
        size_t sizeOut;
        const char *log;
    } cases[] = {
        {VNET_FIELD_SUBNET, 16, true, 13, ""},
        {VNET_FIELD_SUBNET, 13, true, 13, ""},
        {VNET_FIELD_SUBNET, 12, false, 13,
         "HBLGetVnetCfgCpy - Insufficient space provided for host configuration entry: "
         "\"HOSTONLY_SUBNET\".\n"},
        {VNET_FIELD_NETMASK, 16, false, 16,
         "HBLGetVnetCfgCpy - Unable to find host configuration entry : \"HOSTONLY_NETMASK\" for Vnet: 8\n"},
    };
    LogCapture log(LOG_ERR | LOG_INFO2);
    for (const auto &row : cases) {
        char out[16] = "before";
        size_t size = row.sizeIn;
        EXPECT_EQ(row.copied, HBLGetVnetCfgCpy(8, row.field, out, &size)) << row.sizeIn;
        EXPECT_STREQ(row.copied ? "192.168.40.0" : "before", out);
        EXPECT_EQ(row.sizeOut, size);
        EXPECT_EQ(row.log, log.Take());
    }
}

TEST(VnetSettings, FieldTooLongForAKeyIsNeitherReadNorWritten) {
    const OpenCache cache;
    const std::string longest(511 - sizeof "VNET_8_" + 1, 'F');
    EXPECT_TRUE(HBLSetVnetCfg(8, longest.c_str(), "value"));
    EXPECT_STREQ("value", HBLGetVnetCfg(8, longest.c_str()));
    EXPECT_FALSE(HBLSetVnetCfg(8, (longest + "F").c_str(), "value"));
    EXPECT_EQ(nullptr, HBLGetVnetCfg(8, (longest + "F").c_str()));
    LogCapture log;
    EXPECT_FALSE(HBLRemoveVnetCfg(8, nullptr));
    EXPECT_EQ("HBLRemoveVnetCfg - Invalid config option\n", log.Take());
}

TEST(VnetSettings, WritingTheValueThatABooleanReadsAsStoresNothing) {
    const OpenCache cache("answer VNET_8_NAT YES\nanswer VNET_9_NAT true\n");
    const std::string before = ReadFileText(cache.Database());
    EXPECT_TRUE(HBLVnetUsesNAT(8));
    EXPECT_FALSE(HBLVnetUsesNAT(9));
    EXPECT_TRUE(HBLSetVnetCfgBool(8, VNET_FIELD_NAT, true));
    EXPECT_TRUE(HBLSetVnetCfgBool(8, VNET_FIELD_DHCP, false));
    EXPECT_EQ(nullptr, HBLGetVnetCfg(8, VNET_FIELD_DHCP));
    EXPECT_EQ(before, ReadFileText(cache.Database()));
    EXPECT_TRUE(HBLSetVnetCfgBool(8, VNET_FIELD_DHCP, true));
    EXPECT_TRUE(HBLVnetUsesDHCP(8));
}

TEST(VnetSettings, OptionsFollowFromKeysMappingsAndTheDefaultBridge) {
    const OpenCache cache(
        "answer VNET_1_DHCP yes\nanswer VNET_2_NAT yes\nanswer VNET_3_VIRTUAL_ADAPTER yes\n"
        "answer VNET_4_HOSTONLY_SUBNET none\nadd_bridge_mapping eth7 5\n");
    ASSERT_TRUE(HBLSetDefaultBridgeVnet(0));
    // The vnet with the number has just the option beside it.
    const uint32_t optionOfVnet[] = {
        HBL_OPTION_BRIDGE, HBL_OPTION_DHCP,   HBL_OPTION_NAT, HBL_OPTION_VIRTUAL_ADAPTER,
        HBL_OPTION_SUBNET, HBL_OPTION_BRIDGE, HBL_OPTION_NONE};
    for (uint32_t vnet = 0; vnet < std::size(optionOfVnet); vnet++) {
        for (uint32_t option = HBL_OPTION_NONE; option <= HBL_OPTION_SUBNET + 1; option++) {
            const bool expected = option != HBL_OPTION_NONE && option == optionOfVnet[vnet];
            EXPECT_EQ(expected, HBLVnetIsOptionConfigured(vnet, option)) << vnet << " " << option;
        }
    }
}

TEST(AdapterSettings, NameIsTheStoredOneOrTheVnetsAndFitsWhole) {
    const OpenCache cache(
        "answer VNET_1_VIRTUAL_ADAPTER_NAME lab0\nanswer VNET_2_VIRTUAL_ADAPTER_NAME name456789012345\n");
    const struct {
        uint32_t vnet;
        size_t size;
        const char *name;  // null: refused
    } cases[] = {{1, 16, "lab0"},
                 {2, 17, "name456789012345"},
                 {2, 16, nullptr},
                 {255, 9, "zelan255"},
                 {255, 8, nullptr}};
    for (const auto &row : cases) {
        char name[17] = "before";
        EXPECT_EQ(row.name != nullptr, HBLGetVnetVirtAdapterName(row.vnet, name, row.size)) << row.vnet;
        EXPECT_STREQ(row.name != nullptr ? row.name : "before", name);
    }
}

TEST(AdapterSettings, AddressIsTheStoredOneOrComputedOnDemand) {
    const OpenCache cache(
        "answer VNET_1_HOSTONLY_SUBNET 192.168.40.0\n"
        "answer VNET_2_HOSTONLY_SUBNET 192.168.41.0\nanswer VNET_2_VIRTUAL_ADAPTER_ADDR 10.0.0.9\n"
        "answer VNET_3_HOSTONLY_SUBNET 192.168.42\n"
        "answer VNET_4_HOSTONLY_SUBNET 192.168.43.0\nanswer VNET_4_VIRTUAL_ADAPTER_ADDR 100.100.100.1000\n");
    const std::string prefix = "HBLGetVnetVirtAdapterAddr - ";
    const struct {
        uint32_t vnet;
        bool computeDefault;
        size_t size;
        const char *address;  // null: refused
        std::string log;
    } cases[] = {
        {1, true, 16, "192.168.40.1", ""},
        {1, false, 16, nullptr, ""},
        {1, true, 12, nullptr, prefix + "Insufficient buffer length: 12 for adapter address\n"},
        {2, true, 16, "10.0.0.9", ""},
        {2, false, 16, "10.0.0.9", ""},
        {3, true, 16, nullptr,
         "HBLIPStr2Int - sscanf failed\n" + prefix + "Could not calculate adapter address\n"},
        {4, true, 16, nullptr, ""},
        {5, true, 16, nullptr, prefix + "Getting Subnet Address failed\n"},
    };
    LogCapture log;
    for (const auto &row : cases) {
        char address[16] = "before";
        EXPECT_EQ(row.address != nullptr,
                  HBLGetVnetVirtAdapterAddr(row.vnet, address, row.size, row.computeDefault))
            << row.vnet;
        EXPECT_STREQ(row.address != nullptr ? row.address : "before", address) << row.vnet;
        EXPECT_EQ(row.log, log.Take()) << row.vnet;
    }
    EXPECT_EQ(nullptr, HBLGetVnetCfg(1, VNET_FIELD_ADAPTER_ADDR));
}

TEST(AdapterSettings, CleanupRemovesAddressAndNameWithUseAndWithout) {
    for (const bool use : {true, false}) {
        const OpenCache cache(
            "answer VNET_1_VIRTUAL_ADAPTER_ADDR 10.0.0.9\nanswer VNET_1_VIRTUAL_ADAPTER_NAME lab0\n");
        EXPECT_TRUE(HBLSetVnetUseAdapter(1, use, false));
        EXPECT_STREQ("lab0", HBLGetVnetCfg(1, VNET_FIELD_ADAPTER_NAME));
        EXPECT_TRUE(HBLSetVnetUseAdapter(1, use, true));
        EXPECT_EQ(use, HBLGetVnetCfgBool(1, VNET_FIELD_ADAPTER));
        EXPECT_EQ(nullptr, HBLGetVnetCfg(1, VNET_FIELD_ADAPTER_NAME));
        EXPECT_EQ(nullptr, HBLGetVnetCfg(1, VNET_FIELD_ADAPTER_ADDR));
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

}  // namespace
