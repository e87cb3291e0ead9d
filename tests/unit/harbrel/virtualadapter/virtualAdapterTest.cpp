#include "lib/harbrel/virtualadapter/virtualAdapter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "lib/harbrel/harbrel.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/harbrel/networks/subnetTables.h"
#include "tests/support/fakePrograms.h"
#include "tests/support/logCapture.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;

struct SettingsCase {
    const char *field;
    const char *value;  // what spoils it; null: removed
    const char *line;
};

// The interface does not exist, so that settings in order would end at the first ioctl.
TEST(VirtualAdapter, EnableStopsAtTheFirstSettingThatIsWrong) {
    static constexpr SettingsCase CASES[] = {
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
    for (const SettingsCase &row : CASES) {
        SCOPED_TRACE(row.line);
        FakePrograms cache;
        cache.Answer("VNET_8_VIRTUAL_ADAPTER_NAME", "no-such-link");
        cache.Answer("VNET_8_VIRTUAL_ADAPTER_ADDR", "192.168.40.7");
        cache.Answer("VNET_8_HOSTONLY_SUBNET", "192.168.40.0");
        cache.Answer("VNET_8_HOSTONLY_NETMASK", "255.255.255.0");
        LogCapture log;
        ASSERT_TRUE(row.value != nullptr ? HBLSetVnetCfg(8, row.field, row.value)
                                         : HBLRemoveVnetCfg(8, row.field));
        EXPECT_FALSE(HBLVirtAdapterEnable(8));
        EXPECT_THAT(log.Take(), EndsWith("HBLVirtAdapterEnable - " + std::string(row.line) + "\n"));
    }
}

class AdapterSwitch : public testing::Test {
  protected:
    AdapterSwitch() { HBLSubnetTables() = {}; }
    FakePrograms files_;
};

TEST_F(AdapterSwitch, TurningOnTakesASubnetWhereThereIsNoneAndTurningOffKeepsIt) {
    files_.Program("orvane-ping", "exit 2\n");
    EXPECT_TRUE(HBL_SetVnetUseAdapter("zelan8", true, false));
    EXPECT_TRUE(HBLVnetIsOptionConfigured(8, HBL_OPTION_SUBNET));
    EXPECT_TRUE(HBLVnetIsOptionConfigured(8, HBL_OPTION_VIRTUAL_ADAPTER));
    EXPECT_TRUE(HBL_SetVnetUseAdapter("zelan8", false, false));
    EXPECT_TRUE(HBLVnetIsOptionConfigured(8, HBL_OPTION_SUBNET));
    EXPECT_FALSE(HBLVnetIsOptionConfigured(8, HBL_OPTION_VIRTUAL_ADAPTER));
}

TEST_F(AdapterSwitch, FailedAssignmentLeavesTheNetworkAsItWas) {
    files_.Program("orvane-ping", "exit 0\n");
    LogCapture log;
    EXPECT_FALSE(HBL_SetVnetUseAdapter("zelan8", true, false));
    EXPECT_THAT(log.Take(), HasSubstr("HBL_SetVnetUseAdapter - Failed to assign subnet to vnet\n"));
    EXPECT_FALSE(HBLVnetIsOptionConfigured(8, HBL_OPTION_SUBNET));
    EXPECT_FALSE(HBLVnetIsOptionConfigured(8, HBL_OPTION_VIRTUAL_ADAPTER));
}

TEST(VnetAdapterStatus, WithoutAnAdapterIsAReportAndNoFailure) {
    FakePrograms cache;
    bool installed = true;
    bool enabled = true;
    LogCapture log;
    EXPECT_TRUE(HBL_GetVnetAdapterStatus("zelan8", &installed, &enabled));
    EXPECT_FALSE(installed);
    EXPECT_FALSE(enabled);
    EXPECT_EQ("HBL_GetVnetAdapterStatus - Hostonly virtual adapter is not configured on vnet: zelan8\n",
              log.Take());
    cache.Answer("VNET_8_VIRTUAL_ADAPTER", "yes");
    cache.Answer("VNET_8_VIRTUAL_ADAPTER_NAME", "lo");
    EXPECT_TRUE(HBL_GetVnetAdapterStatus("zelan8", &installed, &enabled));
    EXPECT_TRUE(installed);
    EXPECT_TRUE(enabled);
    cache.Answer("VNET_8_VIRTUAL_ADAPTER_NAME", "no-such-link");
    EXPECT_TRUE(HBL_GetVnetAdapterStatus("zelan8", &installed, &enabled));
    EXPECT_FALSE(enabled);
}

}  // namespace
