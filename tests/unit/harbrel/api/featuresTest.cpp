#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "lib/harbrel/bridging/bridging.h"
#include "lib/harbrel/harbrel.h"
#include "tests/support/logCapture.h"
#include "tests/support/openCache.h"

namespace {

// A full network, whose DHCP daemon seems to run, one with DHCP alone, and one bridged by a mapping.
constexpr char RECORDS[] =
    "answer VNET_200_DHCP yes\nanswer VNET_200_NAT yes\nanswer VNET_200_VIRTUAL_ADAPTER yes\n"
    "answer VNET_200_HOSTONLY_SUBNET 192.168.40.0\n"
    "answer VNET_201_DHCP yes\n"
    "add_bridge_mapping hblgone0 202\n";

class Features : public testing::Test {
  protected:
    Features() : cache_(RECORDS) {
        EXPECT_TRUE(HBLSetDefaultBridgeVnet(0));
        WriteFileText(cache_.Folder() + "/zelan-dhcpd-zelan200.pid", std::to_string(getpid()) + "\n");
    }

    OpenCache cache_;
};

HBL_VnetFeatures Query(int32_t vnet) {
    return {1, {0, HBL_NETWORK_TYPE_VNET, vnet, {}}, 0, {}, {}};
}

// The nine bytes: subnet, then DHCP, NAT, bridge and adapter as configured and as running.
std::string BytesOf(const HBL_VnetFeatures &ft) {
    std::string bytes = std::to_string(ft.subnet);
    for (const HBL_FeatureGroup *group : {&ft.config, &ft.runtime}) {
        bytes.append(" ");
        for (const uint8_t byte : {group->dhcp, group->nat, group->bridge, group->hostOnlyAdapter}) {
            bytes.append(std::to_string(byte));
        }
    }
    return bytes;
}

TEST_F(Features, OfEachNetworkTellWhatIsConfiguredAndWhatRuns) {
    const std::pair<int32_t, const char *> cases[] = {{0, "0 0010 0000"},
                                                      {200, "1 1101 1000"},
                                                      {201, "0 1000 0000"},
                                                      {202, "0 0010 0000"},
                                                      {255, "0 0000 0000"}};
    for (const auto &[vnet, bytes] : cases) {
        HBL_VnetFeatures ft = Query(vnet);
        memset(&ft.config, 0xFF, sizeof ft.config);
        memset(&ft.runtime, 0xFF, sizeof ft.runtime);
        EXPECT_TRUE(HBL_GetVnetFeatures(&ft));
        EXPECT_EQ(bytes, BytesOf(ft)) << vnet;
        EXPECT_EQ(0, ft.config.reserved[27] | ft.runtime.reserved[0]);
    }
}

TEST_F(Features, SearchTakesTheFirstNetworkThatMatchesFromTheStart) {
    const struct {
        const char *what;
        int32_t start;
        void (*ask)(HBL_VnetFeatures *ft);
        int32_t found;  // -1: none
    } cases[] = {
        {"not bridged", 0, [](HBL_VnetFeatures *ft) { ft->config.bridge = HBL_FEATURE_NO; }, 1},
        {"bridged", 1, [](HBL_VnetFeatures *ft) { ft->config.bridge = HBL_FEATURE_YES; }, 202},
        {"DHCP but no NAT", 150,
         [](HBL_VnetFeatures *ft) {
             ft->config.dhcp = HBL_FEATURE_YES;
             ft->config.nat = HBL_FEATURE_NO;
         },
         201},
        {"subnet", 150, [](HBL_VnetFeatures *ft) { ft->subnet = HBL_FEATURE_YES; }, 200},
        {"DHCP running", 199, [](HBL_VnetFeatures *ft) { ft->runtime.dhcp = HBL_FEATURE_YES; }, 200},
        {"adapter up", 200, [](HBL_VnetFeatures *ft) { ft->runtime.hostOnlyAdapter = HBL_FEATURE_YES; }, -1},
        {"no such code", 0, [](HBL_VnetFeatures *ft) { ft->subnet = 3; }, -1},
    };
    for (const auto &row : cases) {
        HBL_VnetFeatures ft = Query(row.start);
        row.ask(&ft);
        EXPECT_EQ(row.found >= 0, HBL_FindVnetWithFeatures(&ft)) << row.what;
        EXPECT_EQ(row.found >= 0 ? row.found : row.start, ft.net.vnet) << row.what;
        if (row.found >= 0) {
            HBL_VnetFeatures real = Query(row.found);
            EXPECT_TRUE(HBL_GetVnetFeatures(&real));
            EXPECT_EQ(BytesOf(real), BytesOf(ft)) << row.what;
            EXPECT_EQ(1u, ft.net.version);
        }
    }
}

TEST_F(Features, BadStructureIsRefused) {
    HBL_VnetFeatures version = Query(0);
    version.version = 2;
    HBL_VnetFeatures type = Query(0);
    type.net.type = 0;
    HBL_VnetFeatures none = Query(HBL_VNET_NONE);
    HBL_VnetFeatures high = Query(256);
    const struct {
        HBL_VnetFeatures *ft;
        const char *getLine, *findLine;
    } cases[] = {
        {nullptr, "Invalid argument - ft: (nil)", "Invalid argument - ft: (nil)"},
        {&version, "Unsupported feature struct version: 2", "Unsupported feature struct version: 2"},
        {&type, "Query unsupported for non-vnets", "Query unsupported for non-vnets"},
        {&none, "Invalid vnet number: -1", "Invalid index of starting vnet: -1"},
        {&high, "Invalid vnet number: 256", "Invalid index of starting vnet: 256"},
    };
    LogCapture log;
    for (const auto &row : cases) {
        EXPECT_FALSE(HBL_GetVnetFeatures(row.ft));
        EXPECT_EQ("HBL_GetVnetFeatures - " + std::string(row.getLine) +
                      "\nHBL_GetVnetFeatures - Failed to return vnet features\n",
                  log.Take());
        EXPECT_FALSE(HBL_FindVnetWithFeatures(row.ft));
        EXPECT_EQ("HBL_FindVnetWithFeatures - " + std::string(row.findLine) + "\n", log.Take());
    }
}

}  // namespace
