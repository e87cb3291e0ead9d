// What the bridge changes refuse, and what they leave alone.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "lib/harbrel/bridging/bridging.h"
#include "tests/support/bridgeCalls.h"
#include "tests/support/logCapture.h"
#include "tests/support/openCache.h"

namespace {

TEST(BridgeChanges, DefaultIsZeroOrNoneAndTheSameValueNeedsNoLock) {
    const OpenCache cache;
    ASSERT_TRUE(HBLSetDefaultBridgeVnet(0));
    const std::string before = ReadFileText(cache.Database());
    ASSERT_TRUE(HBLNetCfgLockConfig(nullptr));
    const std::string prefix = "HBL_SetBridgeDefaultNetwork - ";
    LogCapture log;
    EXPECT_TRUE(SetDefaultBridge(0));
    EXPECT_FALSE(SetDefaultBridge(1));
    EXPECT_FALSE(SetDefaultBridge(HBL_VNET_NONE));
    EXPECT_FALSE(HBL_SetBridgeDefaultNetwork(nullptr));
    EXPECT_EQ(prefix + "Invalid vnet number for default bridge: 1\n" + prefix +
                  "Failed to obtain lock on vnet config\n" + prefix + "Invalid arguments - netId: (nil)\n",
              log.Take());
    EXPECT_FALSE(SetDefaultBridge(256));
    EXPECT_EQ(0u, log.Take().find("HBLValidateNetIDStruct - Invalid vnet number: 256\n" + prefix +
                                  "Invalid arguments - netId: 0x"));
    EXPECT_EQ(before, ReadFileText(cache.Database()));
    HBL_NetworkID id = {1, 7, 9, {}};
    EXPECT_TRUE(HBL_GetBridgeDefaultNetwork(&id));
    EXPECT_EQ(std::tuple(HBL_NETWORK_TYPE_VNET, 0), std::tuple(id.type, id.vnet));
    log.Take();
    EXPECT_FALSE(HBL_GetBridgeDefaultNetwork(nullptr) || HBL_GetHostAdapterList(1, nullptr));
    EXPECT_EQ(
        "HBL_GetBridgeDefaultNetwork - Invalid argument - netId: (nil)\n"
        "HBL_GetHostAdapterList - Invalid argument - header: (nil)\n",
        log.Take());
    HBL_FreeHostAdapterList(nullptr);
}

TEST(BridgeChanges, MoveChecksAdapterDestinationAndSource) {
    const OpenCache cache("add_bridge_mapping eth0 3\n");
    ASSERT_TRUE(HBLSetDefaultBridgeVnet(0));
    const std::string before = ReadFileText(cache.Database());
    const HBL_HostAdapter eth0 = AdapterCalled("eth0");
    const HBL_HostAdapter unmapped = AdapterCalled("eth1");
    const HBL_HostAdapter otherVersion = AdapterCalled("eth0", 2);
    HBL_HostAdapter endless = eth0;
    memset(endless.deviceName, 'e', sizeof endless.deviceName);
    const HBL_NetworkID three = NetworkOf(3);
    const HBL_NetworkID four = NetworkOf(4);
    const HBL_NetworkID bad = NetworkOf(-2);
    const std::string prefix = "HBL_BridgeMoveAdapter - ";
    const std::string badNetwork = "HBLValidateNetIDStruct - Invalid vnet number: -2\n";
    const struct {
        const HBL_HostAdapter *adapter;
        const HBL_NetworkID *source, *destination;
        bool accepted;
        std::string log;
    } cases[] = {
        {nullptr, nullptr, nullptr, false, prefix + "Invalid arguments - adapter: (nil)\n"},
        {&otherVersion, nullptr, nullptr, false, prefix + "Unsupported adapter version: 2\n"},
        {&endless, nullptr, nullptr, false, prefix + "Name of host adapter has no end within 128 bytes\n"},
        {&eth0, nullptr, &bad, false, badNetwork + prefix + "Invalid destination network\n"},
        {&eth0, &bad, &four, false, badNetwork + prefix + "Invalid destination network\n"},
        {&eth0, &four, &three, false,
         prefix + "Souce vnet: 4 is not bridged to specified host adapter: eth0\n"},
        {&eth0, &three, &three, true, ""},
        {&eth0, nullptr, &three, true, ""},
        {&unmapped, nullptr, nullptr, true, ""},
    };
    LogCapture log;
    for (const auto &row : cases) {
        EXPECT_EQ(row.accepted, HBL_BridgeMoveAdapter(row.adapter, row.source, row.destination)) << row.log;
        EXPECT_EQ(row.log, log.Take());
    }
    EXPECT_EQ(before, ReadFileText(cache.Database()));
    ASSERT_TRUE(HBLNetCfgLockConfig(nullptr));
    EXPECT_FALSE(HBL_BridgeMoveAdapter(&eth0, nullptr, &four));
    EXPECT_EQ(prefix + "Failed to obtain lock on vnet config\n", log.Take());
}

}  // namespace
