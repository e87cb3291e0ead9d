// The engine that turns a feature on and off: order of the lines, and what becomes of the subnet.
#include "lib/harbrel/networks/featureSwitch.h"

#include <gtest/gtest.h>

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
         "from 0 to 1, assigning, assigned zelan8, on zelan8, "},
        {false, false, true, false, true, false, false, false,
         "from 0 to 1, assigning, assigned zelan8, not on zelan8?, taking back zelan8, "},
        {false, false, false, true, true, false, false, false,
         "from 0 to 1, assigning, not assigned zelan8, taking back zelan8, "},
        {false, true, false, true, true, true, true, true, "from 0 to 1, on zelan8, "},
        {false, true, false, false, true, false, false, true, "from 0 to 1, not on zelan8?, "},
        {true, true, false, true, false, false, true, true, "from 1 to 0, off zelan8, "},
        {true, true, false, false, false, false, false, true, "from 1 to 0, not off zelan8, "},
        {true, false, true, false, true, false, true, false, "same, "},
        {true, false, true, true, true, true, true, false, "same, cleaned zelan8, "},
        {false, true, true, false, false, true, false, true, "same, not cleaned zelan8, "},
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
        std::string lines;
        std::istringstream all(log.Take());
        for (std::string line; std::getline(all, line);) {
            if (line.starts_with("Set - ")) {
                lines += line.substr(6) + ", ";
            }
        }
        EXPECT_EQ(row.lines, lines);
        EXPECT_EQ(row.hasSubnetAfter, HBLVnetIsOptionConfigured(8, HBL_OPTION_SUBNET));
        EXPECT_EQ(row.hasSubnetAfter && !row.hasSubnet, HBLGetVnetCfg(8, VNET_FIELD_NETMASK).has_value());
        EXPECT_TRUE(HBLNetCfgLockConfig(nullptr)) << "the lock was not given back";
    }
}

}  // namespace
