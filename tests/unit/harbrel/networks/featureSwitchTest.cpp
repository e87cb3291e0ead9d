// The engine that turns a feature on and off: order of the lines, and what becomes of the subnet.
#include "lib/harbrel/networks/featureSwitch.h"

#include <gtest/gtest.h>

#include <string>

#include "lib/harbrel/database/database.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/harbrel/networks/subnetTables.h"
#include "tests/support/fakePrograms.h"
#include "tests/support/logCapture.h"

namespace {

bool Stores(uint32_t vnet, bool use, bool) {
    return HBLSetVnetCfgBool(vnet, VNET_FIELD_NAT, use);
}
bool Refuses(uint32_t, bool, bool) {
    return false;
}

constexpr FeatureSwitch WORDS = {
    .option = HBL_OPTION_NAT,
    .set = Stores,
    .same = "same",
    .cleanedUp = {"cleaned ", ""},
    .cleanupFailed = {"not cleaned ", ""},
    .logChanging = [](FunctionLog log, bool used, bool use) { log(LOG_INFO2, "from %u to %u", used, use); },
    .assigning = {"assigning"},
    .assignFailed = {"not assigned ", ""},
    .assigned = {"assigned ", ""},
    .assignedLevel = LOG_INFO,
    .turnedOn = {"on ", ""},
    .turnOnFailed = {"not on ", "?"},
    .takingBack = {"taking back ", ""},
    .turnedOff = {"off ", ""},
    .turnOffFailed = {"not off ", ""}};

TEST(FeatureSwitch, GivesBackOnlyTheSubnetOfThisCall) {
    static constexpr struct {
        bool inUse, hasSubnet, subnetIsFree, setWorks;  // before
        bool use, cleanup;
        bool done, hasSubnetAfter;
        const char *lines;
    } CASES[] = {
        {false, false, true, true, true, false, true, true,
         "from 0 to 1\nassigning\nassigned zelan8\non zelan8\n"},
        {false, false, true, false, true, false, false, false,
         "from 0 to 1\nassigning\nassigned zelan8\nnot on zelan8?\ntaking back zelan8\n"},
        {false, false, false, true, true, false, false, false,
         "from 0 to 1\nassigning\nnot assigned zelan8\ntaking back zelan8\n"},
        {false, true, false, false, true, false, false, true, "from 0 to 1\nnot on zelan8?\n"},
        {true, true, false, true, false, false, true, true, "from 1 to 0\noff zelan8\n"},
        {true, true, false, false, false, false, false, true, "from 1 to 0\nnot off zelan8\n"},
        {true, false, true, true, true, true, true, false, "same\ncleaned zelan8\n"},
        {false, true, true, false, false, true, false, true, "same\nnot cleaned zelan8\n"},
    };
    for (const auto &row : CASES) {
        FakePrograms cache;
        HBLSubnetTables() = {};
        cache.Program("orvane-ping", row.subnetIsFree ? "exit 1" : "exit 0");
        EXPECT_TRUE(HBLSetVnetCfgBool(8, VNET_FIELD_NAT, row.inUse));
        if (row.hasSubnet) {
            cache.Answer("VNET_8_HOSTONLY_SUBNET", "10.0.0.0");
        }
        FeatureSwitch feature = WORDS;
        feature.set = row.setWorks ? Stores : Refuses;
        LogCapture log(HBL_MAX_LOG_MASK - LOG_ARGS);
        SCOPED_TRACE(row.lines);
        EXPECT_EQ(row.done, HBLApiSwitchFeature("Set", feature, "zelan8", row.use, row.cleanup));
        EXPECT_EQ(row.lines, log.TakeFrom("Set"));
        EXPECT_EQ(row.hasSubnetAfter, HBLVnetIsOptionConfigured(8, HBL_OPTION_SUBNET));
        EXPECT_EQ(row.hasSubnetAfter && !row.hasSubnet, HBLGetVnetCfg(8, VNET_FIELD_NETMASK).has_value());
        EXPECT_TRUE(HBLNetCfgLockConfig(nullptr)) << "the lock was not given back";
    }
}

}  // namespace
