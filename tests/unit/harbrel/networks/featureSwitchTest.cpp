// The engine that turns a feature on and off: order of the lines, and what becomes of the subnet.
#include "lib/harbrel/networks/featureSwitch.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "lib/harbrel/database/database.h"
#include "lib/harbrel/harbrel.h"
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

// Takes a feature of network 8 through each end that its exported setter has.
struct SwitchWords {
    bool (*set)(const char *vnet, bool use, bool cleanup);
    const char *function;
    const char *parameter;    // goes with a clean-up
    bool failedCleanUpFails;  // the call
    uint32_t assignedLevel;   // of the line about a new subnet
    const char *lines;        // each once
};

void GoThroughAllEnds(const SwitchWords &feature) {
    FakePrograms cache;
    HBLSubnetTables() = {};
    cache.Program("orvane-ping", "exit 0");
    EXPECT_FALSE(feature.set("zelan8", true, false));
    cache.Program("orvane-ping", "exit 1");
    EXPECT_TRUE(feature.set("zelan8", true, false));
    EXPECT_TRUE(feature.set("zelan8", true, true));
    const auto onFullDisk = [&](bool use, bool cleanup) {
        return cache.WithRoomFor(0, [&] { return feature.set("zelan8", use, cleanup); });
    };
    EXPECT_FALSE(onFullDisk(false, false));
    EXPECT_TRUE(feature.set("zelan8", false, false));
    EXPECT_FALSE(onFullDisk(true, false));
    cache.Answer(feature.parameter, "1");
    EXPECT_EQ(!feature.failedCleanUpFails, onFullDisk(false, true));
}

TEST(FeatureSwitch, EachFeatureHasItsOwnWords) {
    static constexpr SwitchWords FEATURES[] = {
        {HBL_SetVnetUseDHCP, "HBL_SetVnetUseDHCP", "VNET_8_DHCP_PARAM_DNS_ADDR", true, LOG_INFO2,
         "Current DHCP status: 0, requested status: 1, changing DHCP status\n"
         "Attemping to configure subnet for vnet\nFailed to assign subnet to vnet\n"
         "New subnet configured\nSuccess in configuring DHCP for the vnet\n"
         "Current DHCP status and requested status are same\n"
         "Cleaned up existing DHCP configuration for vnet: zelan8\n"
         "Current DHCP status: 1, requested status: 0, changing DHCP status\n"
         "Unconfiguring DHCP failed on vnet: zelan8, current status unknown\n"
         "Success in unconfiguring DHCP  on vnet: zelan8\n"
         "Configuring DHCP failed on vnet: zelan8, current status unknown\n"
         "Failed to cleanup existing DHCP configuration for vnet: zelan8\n"},
        {HBL_SetVnetUseNAT, "HBL_SetVnetUseNAT", "VNET_8_NAT_PARAM_UDP_TIMEOUT", false, LOG_INFO2,
         "Current NAT status: 0, requested status: 1, changing NAT status\n"
         "Attempting to assign an unused subnet for vnet: zelan8\n"
         "Failed to assign subnet to vnet: zelan8\n"
         "Removing assigned subnet for vnet: zelan8 because of error\n"
         "New subnet configured for vnet: zelan8\nSuccess in configuring NAT for vnet: zelan8\n"
         "Current NAT status and requested status are same\n"
         "Cleaned up existing NAT configuration for vnet: zelan8\n"
         "Current NAT status: 1, requested status: 0, changing NAT status\n"
         "Unconfiguring NAT failed on vnet: zelan8\nSuccess in unconfiguring NAT on vnet: zelan8\n"
         "Configuring NAT failed on vnet: zelan8\n"},
        {HBL_SetVnetUseAdapter, "HBL_SetVnetUseAdapter", "VNET_8_VIRTUAL_ADAPTER_NAME", true, LOG_INFO,
         "Changing Adapter status\nAttemping to configure subnet for vnet\n"
         "Failed to assign subnet to vnet\nNew subnet configured\n"
         "Success in configuring Adapter for the vnet\n"
         "Current Adapter status and requested status are same\n"
         "Cleaned up existing adapter configuration values for vnet: zelan8\n"
         "Unconfiguring Adapter failed on vnet: zelan8, current status unknown\n"
         "Success in unconfiguring Adapter on vnet: zelan8\n"
         "Configuring Adapter failed on vnet: zelan8, current status unknown\n"
         "Failed to cleanup existing adapter configuration values for vnet: zelan8\n"},
    };
    for (const SwitchWords &feature : FEATURES) {
        LogCapture log(HBL_MAX_LOG_MASK - LOG_ARGS);
        GoThroughAllEnds(feature);
        std::string lines;
        std::istringstream all(log.TakeFrom(feature.function));
        for (std::string line; std::getline(all, line);) {
            lines += lines.find(line + "\n") == lines.npos ? line + "\n" : "";
        }
        EXPECT_EQ(feature.lines, lines);
        HBLLogSetMask(feature.assignedLevel);
        GoThroughAllEnds(feature);
        EXPECT_NE(std::string::npos, log.Take().find("New subnet configured"));
    }
}

}  // namespace
