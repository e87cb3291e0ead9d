#include "lib/harbrel/bridging/bridging.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "lib/harbrel/api/bridgeRemoval.h"
#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/networks/settings.h"
#include "tests/support/bridgeCalls.h"
#include "tests/support/logCapture.h"
#include "tests/support/openCache.h"

TEST(DefaultBridge, IsZeroOrNoneAndZeroWhenMissingOrNoNumber) {
    const std::string converted =
        "HBLNetCfgGetAnswerInt32 - Value not found or failed to convert value to integer: ";
    const std::string invalid = "HBLGetDefaultBridgeVnet - Invalid value of defaultBridge in config\n";
    const struct {
        const char *stored;  // null: no answer
        bool valid;
        int32_t vnet;
        std::string log;
    } cases[] = {
        {"0", true, 0, ""},
        {"-1", true, HBL_VNET_NONE, ""},
        {nullptr, true, 0, converted + "null\n"},
        {"none", true, 0, converted + "none\n"},
        {"1", false, 0, invalid},
        {"-2", false, 0, invalid},
    };
    const OpenCache cache;
    LogCapture log;
    for (const auto &row : cases) {
        HBLDefaultBridgeCopy() = HBL_DEFAULT_BRIDGE_UNREAD;
        ASSERT_TRUE(HBLNetCfgRemoveAnswer(nullptr, HBL_DEFAULT_BRIDGE_KEY));
        if (row.stored != nullptr) {
            ASSERT_TRUE(HBLNetCfgAddAnswerString(nullptr, HBL_DEFAULT_BRIDGE_KEY, row.stored));
        }
        int32_t vnet = 77;
        EXPECT_EQ(row.valid, HBLGetDefaultBridgeVnet(&vnet)) << row.log;
        EXPECT_EQ(row.valid ? row.vnet : 77, vnet) << row.log;
        EXPECT_EQ(row.log, log.Take());
    }
}

// Read anew, as at a load, from a database that holds no default.
TEST(DefaultBridge, ThatCannotBeReadFailsWhatNeedsIt) {
    const OpenCache cache(std::string("add_bridge_mapping eth0 3\nanswer ") + HBL_DEFAULT_BRIDGE_KEY +
                          " 1\n");
    HBLDefaultBridgeCopy() = HBL_DEFAULT_BRIDGE_UNREAD;
    HBL_NetworkID id = NetworkOf(0);
    int32_t vnet = 77;
    HostAdapterChain list;
    const struct {
        std::function<bool()> ask;
        const char *lastLine;
    } cases[] = {
        {[&] { return HBL_GetBridgeDefaultNetwork(&id); },
         "HBL_GetBridgeDefaultNetwork - Failed to get value of default bridge\n"},
        {[] { return SetDefaultBridge(0); },
         "HBL_SetBridgeDefaultNetwork - Failed to get value of default bridge\n"},
        {[] { return MoveAdapter("eth0", 0); },
         "HBL_BridgeMoveAdapter - Failed to get value of default bridge\n"},
        {[&] { return HBLGetHostAdapterBridge("eth9", &vnet); },
         "HBLGetDefaultBridgeVnet - Invalid value of defaultBridge in config\n"},
        {[&] { return HBLGetVnetBridge(3, &list); },
         "HBLGetVnetBridge - Failed to get the value of default bridge\n"},
        {[] { return HBLVnetIsOptionConfigured(0, HBL_OPTION_BRIDGE); },
         "HBLVnetIsOptionConfigured - Cannot get bridge mappings for vnet: 0\n"},
        {[] { return HBLRemoveBridgeMappingsForVnet(3); },
         "HBLRemoveBridgeMappingsForVnet - Failed to get list of adapters bridged to vnet: 3\n"},
    };
    LogCapture log;
    for (const auto &row : cases) {
        EXPECT_FALSE(row.ask()) << row.lastLine;
        EXPECT_TRUE(log.Take().ends_with(row.lastLine)) << row.lastLine;
    }
    EXPECT_EQ(std::tuple(77, 0u), std::tuple(vnet, list.Count()));
    EXPECT_TRUE(HBLGetHostAdapterBridge("eth0", &vnet));
    EXPECT_EQ(3, vnet);
    ASSERT_TRUE(HBLSetDefaultBridgeVnet(0));
}
