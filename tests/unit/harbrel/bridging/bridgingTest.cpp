#include "lib/harbrel/bridging/bridging.h"

#include <gtest/gtest.h>

#include <string>

#include "lib/harbrel/cache/cache.h"
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
