// Host-only adapters, device nodes and removal, with a stand-in for netifup that makes real interfaces.
#include <gmock/gmock.h>
#include <unistd.h>

#include <functional>
#include <sstream>
#include <string>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/services.h"
#include "lib/harbrel/bridging/bridging.h"
#include "lib/harbrel/database/database.h"
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

// The last line of an exported function, or of the one that two of them share, without its name.
std::string LastWords(const std::string &log) {
    std::string last;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        const size_t name = line.find(" - ");
        const bool isExported = line.starts_with("HBL_") || line.starts_with("HBLCreateDeleteZelanDevice");
        if (isExported && name != std::string::npos) {
            last = line.substr(name + 3);
        }
    }
    return last;
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
    std::string RemovalLines() { return log_.TakeFrom("HBL_DeleteVnetFromDatabase"); }
    static bool NetifupRuns() { return HBLServiceStatus(8, HBL_SVC_NETIFUP) == HBL_SERVICE_STATUS_RUNNING; }
};

// Each line follows from the state that the lines before have left.
TEST_F(HostOnly, CallsEndWithTheirLineAndFreeTheLock) {
    const std::string garbled = "echo zelan > " + cache_.Path("run/zelan-netifup-zelan8.pid");
    const std::string failing = "printf '#!/bin/sh\\nexit 1\\n' > " + cache_.Path("bin/zelan-netifup");
    const std::string tidy = "ip link del zelan8; rm -f " + cache_.Path("run/*");
    const auto shell = [](const std::string &line) { return [line] { Must(line); }; };
    const auto configured = [this](const char *value) {
        return [this, value] { cache_.Answer("VNET_8_VIRTUAL_ADAPTER", value); };
    };
    const auto noMore = [] {};
    bool installed = false, enabled = true;
    const std::function<bool()> enable = [] { return HBL_EnableNetworkAdapter("zelan8"); };
    const std::function<bool()> update = [] { return HBL_UpdateAdapterFromConfig("zelan8"); };
    const std::function<bool()> start = [] { return HBL_StartService("zelan8", HBL_SERVICE_NETIFUP); };
    const std::function<bool()> stop = [] { return HBL_StopService("zelan8", HBL_SERVICE_NETIFUP); };
    const std::function<bool()> remove = [] { return HBL_DeleteVnetFromDatabase("zelan8"); };
    const std::function<bool()> status = [&] {
        return HBL_GetVnetAdapterStatus("zelan8", &installed, &enabled);
    };
    const struct {
        std::function<void()> prepare;
        std::function<bool()> call;
        bool done;
        const char *lastLine;
    } cases[] = {
        {noMore, enable, true, "Successfully enabled hostonly adapter on vnet: zelan8"},
        {configured("no"), enable, false, "Hostonly adapter not configured for vnet: zelan8"},
        {configured("yes"), status, true, "Hostonly virtual adapter is enabled on vnet: zelan8"},
        {shell(garbled + "; ip link del zelan8"), start, true,
         "Started \"Netifup\" service for vnet: zelan8"},
        {shell(garbled), stop, false, "Failure in stopping \"Netifup\" service on vnet: zelan8"},
        {noMore,
         [] { return HBL_GetServiceStatus("zelan8", HBL_SERVICE_NETIFUP) == HBL_SERVICE_STATUS_STOPPED; },
         false, "Failure in determining status of \"Netifup\" service on vnet: zelan8"},
        {noMore, status, true, "Hostonly virtual adapter is disabled on vnet: zelan8"},
        {noMore, update, true, "Adapter is currently disabled, nothing to update on vnet: zelan8"},
        {noMore, remove, false, "Cannot determine status of NETIFUP service on vnet: zelan8"},
        {noMore, enable, false, "Could not determine status of netifup service"},
        {shell(tidy + "; " + failing), enable, false,
         "Stopped netifup service on vnet: zelan8 during cleanup"},
        {configured("no"), status, true, "Hostonly virtual adapter is not configured on vnet: zelan8"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.lastLine);
        row.prepare();
        HBLLogSetMask(LOG_ERR | LOG_OK | LOG_INFO2);
        log_.Take();
        EXPECT_EQ(row.done, row.call());
        EXPECT_THAT(LastWords(log_.Take()), testing::EndsWith(row.lastLine));
        EXPECT_TRUE(HBLNetCfgLockConfig(nullptr) && HBLNetCfgUnlockConfig(nullptr));
    }
    EXPECT_FALSE(installed || enabled);
}

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

TEST_F(HostOnly, RemovalTellsEachStepThatFailsAndTakesEverythingWhenItCan) {
    for (const char *answer : {"VNET_8_NAT", "VNET_8_DHCP"}) {
        cache_.Answer(answer, "yes");
    }
    ASSERT_TRUE(HBLSetBridgeMapping("eth9", 8));
    // DHCP and NAT stay on at first, so that their files are written instead, over folders in the way.
    const std::string folders = cache_.Path("conf/zelan8/dhcpd/dhcpd.conf/mine ") +
                                cache_.Path("conf/zelan8/nat/nat.conf/mine") + " /dev/zelan8";
    Must("mkdir -p " + folders);
    EXPECT_FALSE(cache_.WithRoomFor(0, [] { return HBL_DeleteVnetFromDatabase("zelan8"); }));
    const std::string lastLines =
        "Failed to delete zelan device\n"
        "Not able to delete some configration information for one/more of the services for vnet: zelan8\n";
    EXPECT_EQ(
        "Falied to remove brige mappings for vnet: zelan8\n"
        "Removing DHCP failed on vnet: zelan8, current status unknown\n"
        "Failed to remove DHCP system configuraiton file, for vnet: zelan8\n"
        "Removing NAT failed on vnet: zelan8, current status unknown\n"
        "Failed to remove NAT system configuraiton file, for vnet: zelan8\n"
        "Failed to delete adapter from configuration\nFailed to delete subnet assignment\n" +
            lastLines,
        RemovalLines());
    Must("rmdir " + folders.substr(0, folders.rfind(' ')) + "; rm -r " + cache_.Path("conf/zelan8"));
    ASSERT_TRUE(HBL_UpdateNATFromConfig("zelan8") && HBL_UpdateDHCPFromConfig("zelan8"));
    RemovalLines();
    EXPECT_FALSE(HBL_DeleteVnetFromDatabase("zelan8"));
    EXPECT_EQ(lastLines, RemovalLines());
    for (const uint32_t option : {HBL_OPTION_BRIDGE, HBL_OPTION_DHCP, HBL_OPTION_NAT,
                                  HBL_OPTION_VIRTUAL_ADAPTER, HBL_OPTION_SUBNET}) {
        EXPECT_FALSE(HBLVnetIsOptionConfigured(8, option)) << option;
    }
    EXPECT_EQ("", RunCommand({"find", cache_.Path("conf"), "-name", "*.conf"}).output);
    Must("rmdir /dev/zelan8");
    EXPECT_TRUE(HBL_CreateZelanDevice("zelan8"));
    HBLLogSetMask(LOG_OK | LOG_INFO);
    EXPECT_TRUE(HBL_DeleteVnetFromDatabase("zelan8"));
    EXPECT_EQ(
        "Removed bridge mappings for vnet: zelan8\nRemoved DHCP on vnet: zelan8\n"
        "Removed DHCP system configuraiton file, for vnet: zelan8\nRemoved NAT on vnet: zelan8\n"
        "Removed NAT system configuration file, for vnet: zelan8\nRemoved Adapter from vnet: zelan8\n"
        "Removed subnet assignment for vnet: zelan8\nVnet: zelan8 is successfully unconfigured\n",
        RemovalLines());
    EXPECT_NE(0, access("/dev/zelan8", F_OK));
    EXPECT_TRUE(HBLNetCfgLockConfig(nullptr)) << "the lock was not given back";
}

}  // namespace
