#include <gmock/gmock.h>
#include <signal.h>

#include "lib/harbrel/bridging/bridging.h"
#include "lib/harbrel/harbrel.h"
#include "tests/support/fakePrograms.h"

using testing::EndsWith;
using testing::HasSubstr;

using ServiceControl = FakeProgramsTest;

TEST_F(ServiceControl, RefusesWhatNamesNoService) {
    static constexpr struct {
        const char *vnet;
        uint32_t type;
        const char *line;
    } CASES[] = {
        {"zelan8", 34816, ", serviceType: 34816\n"},
        {"zelan8", 34822, ", serviceType: 34822\n"},
        {"eth0", HBL_SERVICE_NETDETECT, "Invalid vnet name: eth0\n"},
    };
    for (const auto &row : CASES) {
        EXPECT_EQ(HBL_SERVICE_STATUS_ERROR, HBL_GetServiceStatus(row.vnet, row.type));
        EXPECT_THAT(log_.Take(), EndsWith(row.line));
        EXPECT_FALSE(HBL_StopService(row.vnet, row.type));
        EXPECT_FALSE(HBL_StartService(row.vnet, row.type));
        EXPECT_THAT(log_.Take(), EndsWith(row.line));
    }
}

TEST_F(ServiceControl, StartsOnlyWhatMakesSenseOnTheNetwork) {
    static constexpr struct {
        const char *field;  // set on top of the rows above; null: nothing
        uint32_t type;
        const char *line;
    } CASES[] = {
        {nullptr, HBL_SERVICE_BRIDGE, "\"Bridge\" service is not configured for this vnet"},
        {nullptr, HBL_SERVICE_DHCP, "\"DHCP\" service is not configured for this vnet"},
        {"VIRTUAL_ADAPTER", HBL_SERVICE_NETIFUP, "Subnet is not assigned, so service \"Netifup\" is invalid"},
        {"DHCP", HBL_SERVICE_DHCP, "Subnet is not assigned, so service \"DHCP\" is invalid"},
        {"NAT", HBL_SERVICE_NAT, "Subnet is not assigned, so service \"NAT\" is invalid"},
        {"HOSTONLY_SUBNET", HBL_SERVICE_NAT, "NAT configuration file needed for the service does not exist"},
        {nullptr, HBL_SERVICE_DHCP, "DHCP configuration file needed for the service does not exist"},
    };
    ASSERT_TRUE(HBLSetDefaultBridgeVnet(0));
    for (const auto &row : CASES) {
        if (row.field != nullptr) {
            cache_.Answer((std::string("VNET_8_") + row.field).c_str(), "yes");
        }
        EXPECT_FALSE(HBL_StartService("zelan8", row.type));
        EXPECT_THAT(log_.Take(), EndsWith(std::string("HBL_StartService - ") + row.line + "\n"));
    }
}

TEST_F(ServiceControl, RunningDaemonIsReportedLeftAloneAndStopped) {
    BackgroundCommand daemon({"sh", "-c", "trap '' TERM; exec sleep 60"});
    WriteFileText(cache_.Path("run/zelan-detect.pid"), std::to_string(daemon.pid()));
    HBLLogSetMask(LOG_OK | LOG_INFO | LOG_INFO2);
    EXPECT_EQ(HBL_SERVICE_STATUS_RUNNING, HBL_GetServiceStatus(nullptr, HBL_SERVICE_NETDETECT));
    EXPECT_THAT(log_.Take(), HasSubstr("\"Netdetect\" service is currently running on vnet: zelan0\n"));
    EXPECT_TRUE(HBL_StartService("ZELAN7", HBL_SERVICE_NETDETECT));
    EXPECT_THAT(log_.Take(), HasSubstr("\"Netdetect\" Service is already running on the vnet: ZELAN7\n"));
    EXPECT_TRUE(HBL_StopService(nullptr, HBL_SERVICE_NETDETECT));
    EXPECT_THAT(log_.Take(), HasSubstr("HBL_StopService - Stopped \"Netdetect\" service on vnet: zelan0\n"));
    EXPECT_EQ(128 + SIGKILL, daemon.Wait());
    EXPECT_EQ(HBL_SERVICE_STATUS_STOPPED, HBL_GetServiceStatus(nullptr, HBL_SERVICE_NETDETECT));
}
