#include "lib/harbrel/bridging/bridging.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "lib/harbrel/base/hostAdapterChain.h"
#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/hostadapters/discovery.h"
#include "tests/support/logCapture.h"
#include "tests/support/openCache.h"

namespace {

// Makes the next read of the default look into the database again.
void ForgetDefaultBridge() {
    ASSERT_TRUE(HBLSetDefaultBridgeVnet(HBL_DEFAULT_BRIDGE_UNREAD));
    ASSERT_TRUE(HBLNetCfgRemoveAnswer(nullptr, HBL_DEFAULT_BRIDGE_KEY));
}

std::string NamesOf(const HBL_HostAdapter *list) {
    std::string names;
    for (const HBL_HostAdapter *adapter = list; adapter != nullptr; adapter = adapter->next) {
        names.append(names.empty() ? "" : " ").append(adapter->deviceName);
    }
    return names;
}

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
        {"-100", false, 0, invalid},
    };
    const OpenCache cache;
    LogCapture log;
    for (const auto &row : cases) {
        ForgetDefaultBridge();
        if (row.stored != nullptr) {
            ASSERT_TRUE(HBLNetCfgAddAnswerString(nullptr, HBL_DEFAULT_BRIDGE_KEY, row.stored));
        }
        int32_t vnet = 77;
        EXPECT_EQ(row.valid, HBLGetDefaultBridgeVnet(&vnet)) << row.log;
        EXPECT_EQ(row.valid ? row.vnet : 77, vnet) << row.log;
        EXPECT_EQ(row.log, log.Take());
    }
}

TEST(DefaultBridge, IsReadOnceAndChangedOnlyBySetting) {
    const OpenCache cache;
    ForgetDefaultBridge();
    EXPECT_TRUE(HBLGetDefaultBridgeVnet(nullptr));
    ASSERT_TRUE(HBLNetCfgAddAnswerString(nullptr, HBL_DEFAULT_BRIDGE_KEY, "-1"));
    int32_t vnet = 77;
    EXPECT_TRUE(HBLGetDefaultBridgeVnet(&vnet));
    EXPECT_EQ(0, vnet);
    EXPECT_TRUE(HBLSetDefaultBridgeVnet(HBL_VNET_NONE));
    EXPECT_TRUE(HBLGetDefaultBridgeVnet(&vnet));
    EXPECT_EQ(HBL_VNET_NONE, vnet);
}

TEST(EffectiveVnet, IsTheMappingAndWithoutOneTheDefault) {
    const OpenCache cache("add_bridge_mapping eth0 3\nadd_bridge_mapping eth1 -1\n");
    const struct {
        int32_t defaultVnet;
        const char *adapter;
        int32_t vnet;
    } cases[] = {
        {0, "eth0", 3},
        {0, "ETH0", 3},
        {0, "eth1", HBL_VNET_NONE},
        {0, "eth2", 0},
        {HBL_VNET_NONE, "eth0", 3},
        {HBL_VNET_NONE, "eth2", HBL_VNET_NONE},
    };
    for (const auto &row : cases) {
        ASSERT_TRUE(HBLSetDefaultBridgeVnet(row.defaultVnet));
        int32_t vnet = 77;
        EXPECT_TRUE(HBLGetHostAdapterBridge(row.adapter, &vnet));
        EXPECT_EQ(row.vnet, vnet) << row.adapter;
    }
}

TEST(VnetBridge, OfAnotherVnetIsWhatIsMappedThereAndAsksNoKernel) {
    const OpenCache cache(
        "add_bridge_mapping hblgone0 3\nadd_bridge_mapping hblgone1 4\nadd_bridge_mapping hblgone2 -1\n");
    ASSERT_TRUE(HBLSetDefaultBridgeVnet(0));
    LogCapture log(LOG_INFO2);
    HostAdapterChain adapters;
    EXPECT_TRUE(HBLGetVnetBridge(3, &adapters.count, &adapters.head));
    EXPECT_EQ("hblgone0", NamesOf(adapters.head));
    EXPECT_EQ(1u, adapters.count);
    EXPECT_EQ(std::string::npos, log.Take().find("netlink"));
    HostAdapterChain none;
    EXPECT_TRUE(HBLGetVnetBridge(5, nullptr, &none.head));
    EXPECT_EQ(nullptr, none.head);
}

TEST(VnetBridge, OfTheDefaultKeepsAMappedAdapterThatTheHostLacks) {
    const OpenCache cache("add_bridge_mapping hblgone0 0\nadd_bridge_mapping hblgone1 4\n");
    ASSERT_TRUE(HBLSetDefaultBridgeVnet(0));
    HostAdapterChain adapters;
    EXPECT_TRUE(HBLGetVnetBridge(0, &adapters.count, &adapters.head));
    const std::string names = NamesOf(adapters.head);
    EXPECT_NE(std::string::npos, names.find("hblgone0")) << names;
    EXPECT_EQ(std::string::npos, names.find("hblgone1")) << names;
}

TEST(BridgeMappings, WalkGoesOnBehindAFailure) {
    const OpenCache cache;
    HBL_HostAdapter second{};
    strcpy(second.deviceName, "eth1");
    HBL_HostAdapter first{};
    strcpy(first.deviceName, "two words");  // would not read back from the database
    first.next = &second;
    EXPECT_TRUE(HBLSetBridgeMappingForMultipleAdapters(5, nullptr));
    LogCapture log;
    EXPECT_FALSE(HBLSetBridgeMappingForMultipleAdapters(5, &first));
    EXPECT_NE(
        std::string::npos,
        log.Take().find("HBLSetBridgeMappingForMultipleAdapters - Failed to set bridge mapping, vnet: 5, "
                        "host adapter: two words\n"));
    int32_t vnet = 77;
    EXPECT_TRUE(HBLGetHostAdapterBridge("eth1", &vnet));
    EXPECT_EQ(5, vnet);
}

TEST(BridgeDefaultNetwork, ChecksTheVersionAndFillsTypeAndVnet) {
    const OpenCache cache;
    ASSERT_TRUE(HBLSetDefaultBridgeVnet(HBL_VNET_NONE));
    LogCapture log;
    HBL_NetworkID id{2, 7, 9, {}};
    EXPECT_FALSE(HBL_GetBridgeDefaultNetwork(&id));
    EXPECT_EQ("HBL_GetBridgeDefaultNetwork - Unsupported version number: 2\n", log.Take());
    EXPECT_FALSE(HBL_GetBridgeDefaultNetwork(nullptr));
    EXPECT_EQ("HBL_GetBridgeDefaultNetwork - Invalid argument - netId: (nil)\n", log.Take());
    EXPECT_EQ(7u, id.type);
    id.version = 1;
    EXPECT_TRUE(HBL_GetBridgeDefaultNetwork(&id));
    EXPECT_EQ(HBL_NETWORK_TYPE_VNET, id.type);
    EXPECT_EQ(HBL_VNET_NONE, id.vnet);
}

TEST(HostAdapterList, IsOneBlockWithTheEffectiveVnets) {
    const OpenCache cache;
    ASSERT_TRUE(HBLSetDefaultBridgeVnet(HBL_VNET_NONE));
    LogCapture log;
    HBL_HostAdapterList *list = nullptr;
    EXPECT_FALSE(HBL_GetHostAdapterList(2, &list));
    EXPECT_FALSE(HBL_GetHostAdapterList(2, nullptr));
    EXPECT_EQ(
        "HBL_GetHostAdapterList - Unsupported version number: 2\n"
        "HBL_GetHostAdapterList - Invalid argument - header: (nil)\n",
        log.Take());
    ASSERT_TRUE(HBL_GetHostAdapterList(1, &list));
    const HBL_HostAdapter *adapter = list->first;
    for (uint32_t place = 0; place < list->count; place++) {
        EXPECT_EQ(list->first + place, adapter);
        EXPECT_EQ(HBL_VNET_NONE, adapter->net.vnet);
        EXPECT_FALSE(HBLIsOwnAdapterName(adapter->deviceName));
        adapter = adapter->next;
    }
    EXPECT_TRUE(list->count == 0 || adapter == nullptr);
    HBL_FreeHostAdapterList(list);
    HBL_FreeHostAdapterList(nullptr);
}

}  // namespace
