#include "lib/harbrel/virtualadapter/virtualAdapter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "lib/harbrel/harbrel.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/harbrel/networks/subnetTables.h"
#include "tests/support/fakePrograms.h"
#include "tests/support/logCapture.h"

namespace {

class VirtualAdapter : public testing::Test {
  protected:
    VirtualAdapter() { HBLSubnetTables() = {}; }

    FakePrograms cache_;
    LogCapture log_;
};

// The interface does not exist, so that settings in order would end at the first ioctl.
TEST_F(VirtualAdapter, EnableStopsAtTheFirstSettingThatIsWrong) {
    static constexpr struct {
        const char *field;
        const char *value;  // what spoils it; null: removed
        const char *line;
    } CASES[] = {
        {"VIRTUAL_ADAPTER_NAME", "sixteen-letters-", "Getting virtual adapter name failed"},
        {"HOSTONLY_SUBNET", nullptr, "Getting Subnet Address failed"},
        {"VIRTUAL_ADAPTER_ADDR", "192.168.100.1000", "Getting virtual adapter address failed"},
        {"HOSTONLY_NETMASK", nullptr, "Getting virtual adapter mask failed"},
        {"HOSTONLY_NETMASK", "mask", "Getting virtual adapter broadcast address failed"},
        {"VIRTUAL_ADAPTER_ADDR", "192.168.40.01",
         "Converting interface address: 192.168.40.01 to network format failed"},
        {"HOSTONLY_NETMASK", "255.255.255.00",
         "Converting interface netmask: 255.255.255.00 to network format failed"},
        {"HOSTONLY_SUBNET", "192.168.40.00",
         "Converting subnet address: 192.168.40.00 to network format failed"},
    };
    for (const auto &row : CASES) {
        cache_.Answer("VNET_8_VIRTUAL_ADAPTER_NAME", "no-such-link");
        cache_.Answer("VNET_8_VIRTUAL_ADAPTER_ADDR", "192.168.40.7");
        cache_.Answer("VNET_8_HOSTONLY_SUBNET", "192.168.40.0");
        cache_.Answer("VNET_8_HOSTONLY_NETMASK", "255.255.255.0");
        ASSERT_TRUE(row.value != nullptr ? HBLSetVnetCfg(8, row.field, row.value)
                                         : HBLRemoveVnetCfg(8, row.field));
        EXPECT_FALSE(HBLVirtAdapterEnable(8)) << row.line;
        EXPECT_THAT(log_.Take(), testing::EndsWith("HBLVirtAdapterEnable - " + std::string(row.line) + "\n"));
    }
}

TEST_F(VirtualAdapter, SwitchTakesASubnetWhereThereIsNoneAndGivesItBackOnFailure) {
    cache_.Program("orvane-ping", "exit 0\n");
    EXPECT_FALSE(HBL_SetVnetUseAdapter("zelan8", true, false));
    EXPECT_THAT(log_.Take(), testing::HasSubstr("HBL_SetVnetUseAdapter - Failed to assign subnet to vnet\n"));
    EXPECT_FALSE(HBLVnetIsOptionConfigured(8, HBL_OPTION_SUBNET));
    cache_.Program("orvane-ping", "exit 2\n");
    for (const bool use : {true, false}) {
        EXPECT_TRUE(HBL_SetVnetUseAdapter("zelan8", use, false));
        EXPECT_TRUE(HBLVnetIsOptionConfigured(8, HBL_OPTION_SUBNET));
        EXPECT_EQ(use, HBLVnetIsOptionConfigured(8, HBL_OPTION_VIRTUAL_ADAPTER));
    }
}

TEST_F(VirtualAdapter, StatusOfANetworkWithoutOneIsAReportAndNoFailure) {
    bool installed = true;
    bool enabled = true;
    EXPECT_TRUE(HBL_GetVnetAdapterStatus("zelan8", &installed, &enabled));
    EXPECT_FALSE(installed || enabled);
    EXPECT_EQ("HBL_GetVnetAdapterStatus - Hostonly virtual adapter is not configured on vnet: zelan8\n",
              log_.Take());
    cache_.Answer("VNET_8_VIRTUAL_ADAPTER", "yes");
    for (const std::string link : {"no-such-link", "lo"}) {
        cache_.Answer("VNET_8_VIRTUAL_ADAPTER_NAME", link);
        EXPECT_TRUE(HBL_GetVnetAdapterStatus("zelan8", &installed, &enabled));
        EXPECT_TRUE(installed);
        EXPECT_EQ(link == "lo", enabled);
    }
}

}  // namespace
