// The frame of the exported functions as it stands in the log.
#include <gmock/gmock.h>

#include <regex>

#include "lib/harbrel/harbrel.h"
#include "tests/support/logCapture.h"
#include "tests/support/openCache.h"

using testing::EndsWith;

TEST(ApiFrame, FunctionsOpenAndCloseAlike) {
    LogCapture log(HBL_MAX_LOG_MASK);
    const auto lines = [&log] {  // the source lines' numbers taken out
        return std::regex_replace(log.Take(), std::regex(":[0-9]+\n"), ":#\n");
    };
    const std::string name = "HBL_EnableNetworkAdapter";
    const std::string entering =
        "\n----------------------------------\nEntering API Function, " + name + ":#\n\n" + name + " - ";
    const std::string exiting = "\n\nExiting API Function, " + name + ":#\n-----------\n\n";
    EXPECT_FALSE(HBL_EnableNetworkAdapter("zelan8"));
    EXPECT_EQ(entering + "Harbrel Un-Initialized. Aborting API Function: " + name + "\n", lines());
    const OpenCache cache;
    log.Take();
    EXPECT_FALSE(HBL_EnableNetworkAdapter(nullptr));
    EXPECT_EQ(entering + "Arguments - v: (nil),null\n" + name + " - Invalid argument - vnet: (nil)" + exiting,
              lines());
    EXPECT_FALSE(HBL_EnableNetworkAdapter("zelan256"));
    EXPECT_THAT(lines(), EndsWith(" - Invalid vnet name: zelan256" + exiting));
}

TEST(ApiFrame, ServiceCallsWithoutALoadOrAnExitingLine) {
    LogCapture log(LOG_ERR | LOG_INFO2);
    EXPECT_EQ(0U, HBL_GetServiceStatus("zelan8", HBL_SERVICE_NAT)) << "none of the three status values";
    const OpenCache cache;
    EXPECT_FALSE(HBL_StopService("zelan8", 0));
    EXPECT_THAT(log.Take(), EndsWith(", serviceType: 0\n"));
}
