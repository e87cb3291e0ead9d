#include "lib/harbrel/virtualadapter/virtualAdapter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "lib/harbrel/harbrel.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/harbrel/networks/subnetTables.h"
#include "tests/support/command.h"
#include "tests/support/fakePrograms.h"
#include "tests/support/logCapture.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;

TEST(VirtualAdapter, StatusTellsUpFromAbsent) {
    LogCapture log(LOG_ERR | LOG_INFO);
    EXPECT_EQ(HBL_ADAPTER_STATUS_UP, HBLAdapterStatus("lo"));
    EXPECT_THAT(log.Take(), HasSubstr("HBLAdapterStatus - ioctl: SIOCGIFFLAGS get interface flags: 0x"));
    EXPECT_EQ(HBL_ADAPTER_STATUS_ABSENT, HBLAdapterStatus("no-such-link"));
    EXPECT_EQ("HBLAdapterStatus - ioctl: SIOCGIFFLAGS failed, error: No such device\n", log.Take());
}

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
    AdapterSwitch() {
        cache_.Program("orvane-ping", "touch $DIR/pinged; exit $(cat $DIR/status)\n");
        WriteFileText(cache_.Path("status"), "2");
        HBLSubnetTables() = {};
    }
    bool Pinged() const { return std::filesystem::exists(cache_.Path("pinged")); }
    FakePrograms cache_;
};

TEST_F(AdapterSwitch, TurningOnTakesASubnetWhereThereIsNoneAndTurningOffKeepsIt) {
    EXPECT_TRUE(HBL_SetVnetUseAdapter("zelan8", true, false));
    EXPECT_TRUE(HBLVnetIsOptionConfigured(8, HBL_OPTION_SUBNET));
    EXPECT_TRUE(HBLVnetIsOptionConfigured(8, HBL_OPTION_VIRTUAL_ADAPTER));
    EXPECT_TRUE(HBL_SetVnetUseAdapter("zelan8", false, false));
    EXPECT_TRUE(HBLVnetIsOptionConfigured(8, HBL_OPTION_SUBNET));
    EXPECT_FALSE(HBLVnetIsOptionConfigured(8, HBL_OPTION_VIRTUAL_ADAPTER));
}

TEST_F(AdapterSwitch, TurningOnWithASubnetRunsNoPing) {
    cache_.Answer("VNET_8_HOSTONLY_SUBNET", "10.1.2.0");
    EXPECT_TRUE(HBL_SetVnetUseAdapter("zelan8", true, false));
    EXPECT_FALSE(Pinged());
}

TEST_F(AdapterSwitch, FailedAssignmentLeavesTheNetworkAsItWas) {
    WriteFileText(cache_.Path("status"), "0");
    LogCapture log;
    EXPECT_FALSE(HBL_SetVnetUseAdapter("zelan8", true, false));
    EXPECT_THAT(log.Take(), HasSubstr("HBL_SetVnetUseAdapter - Failed to assign subnet to vnet\n"));
    EXPECT_FALSE(HBLVnetIsOptionConfigured(8, HBL_OPTION_SUBNET));
    EXPECT_FALSE(HBLVnetIsOptionConfigured(8, HBL_OPTION_VIRTUAL_ADAPTER));
}

TEST_F(AdapterSwitch, SameStatusChangesOnlyWhatCleanupRemoves) {
    cache_.Answer("VNET_8_VIRTUAL_ADAPTER", "yes");
    cache_.Answer("VNET_8_VIRTUAL_ADAPTER_NAME", "host8");
    LogCapture log(LOG_INFO);
    EXPECT_TRUE(HBL_SetVnetUseAdapter("zelan8", true, false));
    EXPECT_STREQ("host8", HBLGetVnetCfg(8, VNET_FIELD_ADAPTER_NAME));
    EXPECT_TRUE(HBL_SetVnetUseAdapter("zelan8", true, true));
    EXPECT_EQ(nullptr, HBLGetVnetCfg(8, VNET_FIELD_ADAPTER_NAME));
    EXPECT_FALSE(Pinged());
    EXPECT_THAT(log.Take(), HasSubstr("Cleaned up existing adapter configuration values for vnet: zelan8\n"));
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
