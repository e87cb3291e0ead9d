// Bridge changes with real adapters and daemons: the mappings left, and what was restarted in which order.
#include <gmock/gmock.h>

#include <numeric>
#include <set>
#include <string>

#include "lib/harbrel/api/bridgeRemoval.h"
#include "lib/harbrel/base/hostAdapterChain.h"
#include "lib/harbrel/base/services.h"
#include "lib/harbrel/bridging/bridging.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/harbrel.h"
#include "lib/harbrel/hostadapters/discovery.h"
#include "lib/harbrel/services/daemons.h"
#include "tests/support/bridgeCalls.h"
#include "tests/support/fakePrograms.h"
#include "tests/support/netns.h"

namespace {

// Notes each start as "<vnet> <adapters>". A file refuse-<vnet> makes the next start of that vnet fail.
constexpr char FAKE_BRIDGE[] = R"(
fd=$2; pidFile=$4; vnet=$6; shift 6
echo $vnet $(printf '%s\n' "$@" | sort) >> $DIR/starts
rm "$DIR/refuse-$vnet" 2> /dev/null && exit 1
setsid sleep 600 > /dev/null 2>&1 &
echo $! > "$pidFile"
printf x > "/proc/self/fd/$fd"
)";

// Adapters hbl0 to hbl3 on the host; hbl0 and hbl2 are mapped to network 5, hbl1 to network 3.
class BridgeChanges : public FakeProgramsTest {
  protected:
    BridgeChanges() {
        cache_.Program("zelan-bridge", FAKE_BRIDGE);
        for (const auto &[adapter, vnet] : {std::pair{"hbl0", 5}, {"hbl1", 3}, {"hbl2", 5}}) {
            EXPECT_TRUE(HBLSetBridgeMapping(adapter, vnet));
        }
        Must("ip link set lo mtu 1000");
        for (const char *adapter : {"hbl0", "hbl1", "hbl2", "hbl3"}) {
            AddAdapter(adapter);
        }
        EXPECT_TRUE(HBLSetDefaultBridgeVnet(0));
    }
    ~BridgeChanges() override {
        Must("for link in $(ip -o link | grep -io '\\(hbl\\|zelan\\)[0-9]*'); do ip link del $link; done");
    }

    // The kernel spreads a link dump over several datagrams, of which discovery takes the first. Interfaces
    // that are too narrow for IPv6 have short messages: the loopback and two adapters fit.
    void AddAdapter(const std::string &name) {
        Must("ip link add " + name + " mtu 1000 type veth peer mtu 1000 name " + name + " netns " +
             others_.name());
    }
    void Run(std::initializer_list<uint32_t> vnets) {
        for (const uint32_t vnet : vnets) {
            ASSERT_TRUE(HBLServiceStart(vnet, HBL_SVC_BRIDGE));
        }
        TakeStarts();
    }
    static bool Runs(uint32_t vnet) {
        return HBLServiceStatus(vnet, HBL_SVC_BRIDGE) == HBL_SERVICE_STATUS_RUNNING;
    }
    void RefuseNextStart(uint32_t vnet) { WriteFileText(cache_.Path("refuse-" + std::to_string(vnet)), ""); }
    std::string TakeStarts() {
        const std::string starts = ReadFileText(cache_.Path("starts"));
        std::filesystem::remove(cache_.Path("starts"));
        return starts;
    }
    static int32_t VnetOf(const char *adapter) {
        int32_t vnet = 77;
        EXPECT_TRUE(HBLGetHostAdapterBridge(adapter, &vnet));
        return vnet;
    }
    // The effective networks of hbl0 to hbl3.
    static std::string Vnets() {
        std::string vnets;
        for (const char *adapter : {"hbl0", "hbl1", "hbl2", "hbl3"}) {
            vnets.append(vnets.empty() ? "" : " ").append(std::to_string(VnetOf(adapter)));
        }
        return vnets;
    }
    static int32_t Default() {
        int32_t vnet = 77;
        EXPECT_TRUE(HBLGetDefaultBridgeVnet(&vnet));
        return vnet;
    }
    // In their order.
    static std::string NamesOnDefault() {
        HostAdapterChain chain;
        EXPECT_TRUE(HBLGetVnetBridge(0, &chain));
        std::multiset<std::string> names;
        for (const HBL_HostAdapter *adapter = chain.First(); adapter != nullptr; adapter = adapter->next) {
            names.insert(std::string(adapter->deviceName) + " ");
        }
        return std::accumulate(names.begin(), names.end(), std::string());
    }
    const Machine others_{"others"};
};

TEST_F(BridgeChanges, DiscoveryFindsAdaptersWithDriverAndKeepsOwnOnesOffTheExportedList) {
    Must("ip link del hbl1 && ip link del hbl2 && ip link del hbl3");
    AddAdapter("zelan7");
    Must("ip link set zelan7 name ZELAN7 && ip link set hbl0 name hbl456789012345");
    ASSERT_TRUE(others_.Run("ip link set hbl0 up").Succeeded());
    Must("ip link set hbl456789012345 up");
    ASSERT_TRUE(
        WaitUntil([] { return RunShell("ip link show hbl456789012345 | grep 'state UP'").Succeeded(); }));
    ASSERT_TRUE(HBLSetBridgeMapping("hbl456789012345", 5));
    HostAdapterChain chain;
    ASSERT_TRUE(HBLCreateHostAdapList(&chain));
    std::string found;
    for (const HBL_HostAdapter *adapter = chain.First(); adapter != nullptr; adapter = adapter->next) {
        EXPECT_STREQ("veth", adapter->driverName);
        found.append(adapter->deviceName).append(adapter->status == 1 ? " up, " : " down, ");
    }
    EXPECT_EQ("hbl456789012345 up, ZELAN7 down, ", found);
    HBL_HostAdapterList *list = nullptr;
    ASSERT_TRUE(HBL_GetHostAdapterList(1, &list));
    ASSERT_EQ(1u, list->count);
    EXPECT_STREQ("hbl456789012345", list->first->deviceName);
    EXPECT_EQ(std::tuple(1u, HBL_NETWORK_TYPE_VNET, 5),
              std::tuple(list->first->net.version, list->first->net.type, list->first->net.vnet));
    EXPECT_EQ(nullptr, list->first->next);
    HBL_FreeHostAdapterList(list);
    Must("ip link set ZELAN7 name hbl7");
    ASSERT_TRUE(HBL_GetHostAdapterList(1, &list));
    ASSERT_EQ(2u, list->count);
    EXPECT_STREQ("hbl7", list->first->next->deviceName);
    EXPECT_EQ(0, list->first->next->net.vnet);
    EXPECT_EQ(nullptr, list->first->next->next);
    HBL_FreeHostAdapterList(list);
    // The default takes hbl7, and what is mapped to it once only.
    Must("ip link set hbl7 name zelan7");
    ASSERT_TRUE(HBLSetBridgeMapping("HBL456789012345", 0) && HBLSetBridgeMapping("gone", 0));
    EXPECT_EQ("HBL456789012345 gone ", NamesOnDefault());
    Must("ip link set zelan7 name hbl7");
    EXPECT_EQ("HBL456789012345 gone hbl7 ", NamesOnDefault());
    HBLDefaultBridgeCopy() = HBL_DEFAULT_BRIDGE_UNREAD;
    ASSERT_TRUE(HBLNetCfgAddAnswerString(nullptr, HBL_DEFAULT_BRIDGE_KEY, "1"));
    EXPECT_FALSE(HBL_GetHostAdapterList(1, &list)) << "hbl7 goes by the default";
    HBLDefaultBridgeCopy() = 0;
}

TEST_F(BridgeChanges, RemovedDefaultPinsItsAdaptersAndItsReturnTakesTheUnmappedOnes) {
    Must("ip link del hbl0 && ip link del hbl1 && ip link del hbl2");
    Run({0});
    EXPECT_TRUE(SetDefaultBridge(HBL_VNET_NONE));
    EXPECT_EQ("5 3 5 0", Vnets());
    EXPECT_EQ("0 -ihbl3\n", TakeStarts());
    AddAdapter("hbl4");
    EXPECT_EQ(HBL_VNET_NONE, VnetOf("hbl4"));
    EXPECT_TRUE(SetDefaultBridge(0));
    EXPECT_EQ("0 -ehbl0 -ehbl1 -ehbl2\n", TakeStarts());
    int32_t mapped = 77;
    EXPECT_TRUE(HBLNetCfgLookupVnetForHostAdapter(nullptr, "hbl4", &mapped));
    EXPECT_EQ(0, mapped);
}

TEST_F(BridgeChanges, RefusedRestartBringsTheDefaultBack) {
    Must("ip link del hbl0 && ip link del hbl1 && ip link del hbl2");
    Run({0});
    RefuseNextStart(0);
    EXPECT_FALSE(SetDefaultBridge(HBL_VNET_NONE));
    EXPECT_EQ(0, Default());
    EXPECT_EQ("0 -ihbl3\n0 -ehbl0 -ehbl1 -ehbl2\n", TakeStarts());
    EXPECT_TRUE(Runs(0));
    // The other way round: an adapter without a mapping gets one to none, which it effectively had.
    EXPECT_TRUE(SetDefaultBridge(HBL_VNET_NONE));
    AddAdapter("hbl4");
    TakeStarts();
    RefuseNextStart(0);
    EXPECT_FALSE(SetDefaultBridge(0));
    EXPECT_EQ(HBL_VNET_NONE, Default());
    EXPECT_EQ(HBL_VNET_NONE, VnetOf("hbl4"));
    EXPECT_EQ("0 -ehbl0 -ehbl1 -ehbl2\n0 -ihbl3\n", TakeStarts());
    EXPECT_TRUE(Runs(0));
    EXPECT_TRUE(HBLNetCfgLockConfig(nullptr)) << "the lock was not given back";
}

TEST_F(BridgeChanges, MoveRestartsDestinationDefaultAndSourceInThisOrder) {
    static constexpr struct {
        const char *what, *adapter;
        int32_t destination;
        const char *vnets, *starts;
    } CASES[] = {
        {"to a network with another adapter", "hbl0", 3, "3 0 5 0", "3 -ihbl0\n0 -ehbl0 -ehbl2\n5 -ihbl2\n"},
        {"to the default", "hbl0", 0, "0 0 5 0", "0 -ehbl2\n0 -ehbl2\n"},
        {"to none", "hbl1", HBL_VNET_NONE, "0 -1 5 0", "0 -ehbl1 -ehbl2\n"},
        {"from none to an empty network", "hbl1", 9, "0 9 5 0", "0 -ehbl1 -ehbl2\n"},
    };
    Run({0, 3, 5});
    for (const auto &row : CASES) {
        EXPECT_TRUE(MoveAdapter(row.adapter, row.destination)) << row.what;
        EXPECT_EQ(row.vnets, Vnets()) << row.what;
        EXPECT_EQ(row.starts, TakeStarts()) << row.what;
    }
    // The second move took the last adapter off network 3.
    EXPECT_FALSE(Runs(3) || Runs(9));
}

TEST_F(BridgeChanges, RefusedRestartOfAnyNetworkPutsAdaptersAndServicesBack) {
    static constexpr std::pair<uint32_t, const char *> CASES[] = {
        {3, "3 -ihbl0\n3 -ihbl1\n"},
        {0, "3 -ihbl0\n0 -ehbl0 -ehbl2\n3 -ihbl1\n0 -ehbl0 -ehbl1 -ehbl2\n"},
        {5, "3 -ihbl0\n0 -ehbl0 -ehbl2\n5 -ihbl2\n5 -ihbl0 -ihbl2\n3 -ihbl1\n0 -ehbl0 -ehbl1 -ehbl2\n"},
    };
    Run({0, 3, 5});
    for (const auto &[refused, starts] : CASES) {
        RefuseNextStart(refused);
        EXPECT_FALSE(MoveAdapter("hbl0", 3)) << refused;
        EXPECT_EQ("5 3 5 0", Vnets()) << refused;
        EXPECT_EQ(starts, TakeStarts()) << refused;
        EXPECT_TRUE(Runs(0) && Runs(3) && Runs(5)) << refused;
    }
    EXPECT_TRUE(MoveAdapter("hbl0", 3));
    cache_.Program("zelan-bridge", "exit 1\n");
    EXPECT_FALSE(MoveAdapter("hbl1", 3));
    EXPECT_THAT(log_.Take(),
                testing::EndsWith("HBL_BridgeMoveAdapter - Failed to restart bridge service on destination "
                                  "vnet: 3, during cleanup\n"));
}

TEST_F(BridgeChanges, RemovedNetworkLeavesItsAdaptersToTheDefault) {
    Run({0, 5});
    EXPECT_TRUE(HBLRemoveBridgeMappingsForVnet(5));
    EXPECT_EQ("0 3 0 0", Vnets());
    EXPECT_EQ("0 -ehbl1\n", TakeStarts());
    EXPECT_TRUE(HBLRemoveBridgeMappingsForVnet(0));
    EXPECT_EQ("-1 3 -1 -1", Vnets());
    EXPECT_EQ("", TakeStarts());
    EXPECT_EQ(HBL_VNET_NONE, Default());
}

}  // namespace
