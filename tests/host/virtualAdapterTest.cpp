// Host-only adapters, device nodes and removal, with a stand-in for netifup that makes real interfaces.
#include <gmock/gmock.h>
#include <unistd.h>

#include <string>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/services.h"
#include "lib/harbrel/bridging/bridging.h"
#include "lib/harbrel/harbrel.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/harbrel/services/daemons.h"
#include "tests/support/fakePrograms.h"
#include "tests/support/netns.h"

namespace {

// -s <fd> -d <pid file> ...
const std::string FAKE_DAEMON =
    "setsid sleep 600 > /dev/null 2>&1 & echo $! > $4; printf x > /proc/self/fd/$2\n";
// ... <node> <adapter>. Refuses to come up without the node.
const std::string FAKE_NETIFUP = "[ -c $5 ] && ip link add $6 type veth || exit 1\n" + FAKE_DAEMON;

bool IsUp(const std::string &link) {
    return RunShell("ip -o link show dev " + link + " | grep -q '[<,]UP[,>]'").Succeeded();
}

class HostOnly : public FakeProgramsTest {
  protected:
    HostOnly() {
        cache_.Program("zelan-netifup", FAKE_NETIFUP);
        cache_.Program("zelan-natd", FAKE_DAEMON);
        cache_.Answer("VNET_8_VIRTUAL_ADAPTER", "yes");
        cache_.Answer("VNET_8_HOSTONLY_SUBNET", "192.168.40.0");
        cache_.Answer("VNET_8_HOSTONLY_NETMASK", "255.255.255.0");
        EXPECT_TRUE(HBLSetDefaultBridgeVnet(0));
    }
    static bool NetifupRuns() { return HBLServiceStatus(8, HBL_SVC_NETIFUP) == HBL_SERVICE_STATUS_RUNNING; }
};

TEST_F(HostOnly, InterfaceThatIsUpIsLeftAlone) {
    Must("ip link add zelan8 type veth && ip link set zelan8 up");
    EXPECT_TRUE(HBL_EnableNetworkAdapter("zelan8"));
    EXPECT_FALSE(NetifupRuns());
    EXPECT_EQ("", AddressOf("zelan8"));
    EXPECT_NE(0, access("/dev/zelan8", F_OK));
}

TEST_F(HostOnly, FailedBringUpStopsOnlyADaemonOfItsOwn) {
    ASSERT_TRUE(HBLRemoveVnetCfg(8, VNET_FIELD_SUBNET));
    EXPECT_FALSE(HBL_EnableNetworkAdapter("zelan8"));
    EXPECT_FALSE(NetifupRuns());
    EXPECT_EQ(0, access("/dev/zelan8", F_OK));
    Must("ip link del zelan8");
    ASSERT_TRUE(HBLServiceStart(8, HBL_SVC_NETIFUP));
    EXPECT_FALSE(HBL_EnableNetworkAdapter("zelan8"));
    EXPECT_TRUE(NetifupRuns());
}

TEST_F(HostOnly, TakeDownStopsTheDaemonAndKeepsTheNode) {
    ASSERT_TRUE(HBL_EnableNetworkAdapter("zelan8"));
    EXPECT_TRUE(HBL_DisableNetworkAdapter("zelan8"));
    EXPECT_FALSE(IsUp("zelan8"));
    EXPECT_EQ("192.168.40.1/24 brd 192.168.40.255\n", AddressOf("zelan8"));
    EXPECT_FALSE(NetifupRuns());
    EXPECT_EQ(0, access("/dev/zelan8", F_OK));
}

TEST_F(HostOnly, UpdateFollowsTheConfigurationUnderAnyInterfaceName) {
    const std::string name = "fifteen-letters";
    cache_.Answer("VNET_8_VIRTUAL_ADAPTER_NAME", name);
    EXPECT_TRUE(HBL_UpdateAdapterFromConfig("zelan8"));
    EXPECT_FALSE(NetifupRuns());
    ASSERT_TRUE(HBL_EnableNetworkAdapter("zelan8"));
    cache_.Answer("VNET_8_VIRTUAL_ADAPTER_ADDR", "192.168.40.7");
    EXPECT_TRUE(HBL_UpdateAdapterFromConfig("zelan8"));
    EXPECT_EQ("192.168.40.7/24 brd 192.168.40.255\n", AddressOf(name));
    EXPECT_TRUE(IsUp(name));
    EXPECT_TRUE(NetifupRuns());
    cache_.Answer("VNET_8_VIRTUAL_ADAPTER", "no");
    EXPECT_TRUE(HBL_UpdateAdapterFromConfig("zelan8"));
    EXPECT_FALSE(IsUp(name));
    EXPECT_FALSE(NetifupRuns());
}

TEST_F(HostOnly, RemovalRefusesWhileAnythingOfTheNetworkIsThere) {
    ASSERT_TRUE(HBLServiceStart(8, HBL_SVC_NAT));
    ASSERT_TRUE(HBL_EnableNetworkAdapter("zelan8"));
    EXPECT_FALSE(HBL_DeleteVnetFromDatabase("zelan8"));
    const std::string lines = log_.Take();
    for (const char *line :
         {"NAT service is still running on this vnet", "NETIFUP service is still running on this vnet",
          "Hostonly Adapter zelan8 is still enabled on vnet: zelan8."}) {
        EXPECT_THAT(lines, testing::HasSubstr(std::string("HBL_DeleteVnetFromDatabase - ") + line +
                                              " Cannot delete config information\n"));
    }
    // A daemon alone is enough, and so is an interface that is down.
    Must("ip link del zelan8");
    EXPECT_TRUE(HBLServiceStop(8, HBL_SVC_NETIFUP));
    EXPECT_FALSE(HBL_DeleteVnetFromDatabase("zelan8"));
    EXPECT_TRUE(HBLServiceStop(8, HBL_SVC_NAT));
    Must("ip link add zelan8 type veth");
    HBLLogSetMask(LOG_ERR | LOG_INFO);
    EXPECT_FALSE(HBL_DeleteVnetFromDatabase("zelan8"));
    EXPECT_THAT(log_.Take(), Not(testing::ContainsRegex("interface flags(.|\n)*interface flags")));
    EXPECT_TRUE(HBLVnetIsOptionConfigured(8, HBL_OPTION_SUBNET));
    EXPECT_EQ(0, access("/dev/zelan8", F_OK));
}

TEST_F(HostOnly, RemovalFollowsAStopAtOnce) {
    cache_.Answer("BINDIR", HARBREL_BIN_DIR);  // the interface of the real daemon goes away behind the stop
    for (int round = 0; round < 5; ++round) {
        cache_.Answer("VNET_8_VIRTUAL_ADAPTER", "yes");
        cache_.Answer("VNET_8_HOSTONLY_SUBNET", "192.168.40.0");
        cache_.Answer("VNET_8_HOSTONLY_NETMASK", "255.255.255.0");
        ASSERT_TRUE(HBL_EnableNetworkAdapter("zelan8"));
        EXPECT_TRUE(HBL_DisableNetworkAdapter("zelan8"));
        EXPECT_TRUE(HBL_DeleteVnetFromDatabase("zelan8")) << log_.Take();
    }
}

TEST_F(HostOnly, RemovalTakesEverythingAndGoesOnPastAFailure) {
    for (const char *field : {"NAT", "DHCP"}) {
        cache_.Answer(std::string("VNET_8_") + field, "yes");
    }
    ASSERT_TRUE(HBLSetBridgeMapping("eth9", 8));
    ASSERT_TRUE(HBL_UpdateNATFromConfig("zelan8"));
    ASSERT_TRUE(HBL_UpdateDHCPFromConfig("zelan8"));
    Must("mkdir /dev/zelan8");
    EXPECT_FALSE(HBL_DeleteVnetFromDatabase("zelan8"));
    EXPECT_THAT(
        log_.Take(),
        testing::EndsWith("HBL_DeleteVnetFromDatabase - Failed to delete zelan device\n"
                          "HBL_DeleteVnetFromDatabase - Not able to delete some configration information for "
                          "one/more of the services for vnet: zelan8\n"));
    for (const uint32_t option : {HBL_OPTION_BRIDGE, HBL_OPTION_DHCP, HBL_OPTION_NAT,
                                  HBL_OPTION_VIRTUAL_ADAPTER, HBL_OPTION_SUBNET}) {
        EXPECT_FALSE(HBLVnetIsOptionConfigured(8, option)) << option;
    }
    EXPECT_EQ("", RunCommand({"find", cache_.Path("conf"), "-name", "*.conf"}).output);
    Must("rmdir /dev/zelan8");
    EXPECT_TRUE(HBL_CreateZelanDevice("zelan8"));
    HBLLogSetMask(LOG_OK);
    EXPECT_TRUE(HBL_DeleteVnetFromDatabase("zelan8"));
    EXPECT_EQ("HBL_DeleteVnetFromDatabase - Vnet: zelan8 is successfully unconfigured\n", log_.Take());
    EXPECT_NE(0, access("/dev/zelan8", F_OK));
}

}  // namespace
