#include "lib/harbrel/virtualadapter/virtualAdapter.h"

#include <gmock/gmock.h>

#include "lib/harbrel/networks/settings.h"
#include "tests/support/fakePrograms.h"
#include "tests/support/logCapture.h"

// The interface does not exist, so that settings in order would end at the first ioctl.
TEST(VirtualAdapter, EnableStopsAtTheFirstSettingThatIsWrong) {
    FakePrograms cache;
    LogCapture log;
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
        {"HOSTONLY_SUBNET", "192.168.40.00",
         "Converting subnet address: 192.168.40.00 to network format failed"},
    };
    for (const auto &row : CASES) {
        cache.Answer("VNET_8_VIRTUAL_ADAPTER_NAME", "no-such-link");
        cache.Answer("VNET_8_VIRTUAL_ADAPTER_ADDR", "192.168.40.7");
        cache.Answer("VNET_8_HOSTONLY_SUBNET", "192.168.40.0");
        cache.Answer("VNET_8_HOSTONLY_NETMASK", "255.255.255.0");
        ASSERT_TRUE(row.value != nullptr ? HBLSetVnetCfg(8, row.field, row.value)
                                         : HBLRemoveVnetCfg(8, row.field));
        EXPECT_FALSE(HBLVirtAdapterEnable(8)) << row.line;
        EXPECT_THAT(log.Take(), testing::EndsWith("HBLVirtAdapterEnable - " + std::string(row.line) + "\n"));
    }
}
