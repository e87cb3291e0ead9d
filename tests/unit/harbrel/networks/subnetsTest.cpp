// Candidates, probing and assignment, with a script in the place of orvane-ping.
#include "lib/harbrel/networks/subnets.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <set>

#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/harbrel.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/harbrel/networks/subnetTables.h"
#include "tests/support/fakePrograms.h"

namespace {

constexpr int NO_ANSWER = 1;
constexpr int UNREACHABLE = 2;

class Subnets : public FakeProgramsTest {
  protected:
    Subnets() { HBLSubnetTables() = {}; }
    void PingsExitWith(int broadcast, int direct) {
        cache_.Program("orvane-ping", "echo \"$@\" >> $DIR/pings\ncase $2 in -b) exit " +
                                          std::to_string(broadcast) + ";; esac; exit " +
                                          std::to_string(direct) + "\n");
    }
    std::string TakePings() {
        const std::string pings = ReadFileText(cache_.Path("pings"));
        std::filesystem::remove(cache_.Path("pings"));
        return pings;
    }
    static std::string Candidate(int index) {
        char text[HBL_IP_STR_SIZE];
        HBLIPInt2Str(HBLSubnetTables().candidates[index].address, text);
        return text;
    }

    char subnet_[HBL_IP_STR_SIZE] = "untouched";
    char mask_[HBL_IP_STR_SIZE] = "untouched";
};

constexpr const char *BROADCAST = "-q -b 192.168.40.0 -t 2 -i 1\n";
constexpr const char *DIRECT = "-q 192.168.40.1 -t 2 -i 1\n";
constexpr const char *BOTH = "-q -b 192.168.40.0 -t 2 -i 1\n-q 192.168.40.1 -t 2 -i 1\n";

TEST_F(Subnets, ExitStatusesOfThePingsDecide) {
    static constexpr struct {
        bool broadcast;
        int broadcastStatus, directStatus;
        bool isFree;
        const char *pings;
        int unusual;  // the status that the log shows
    } CASES[] = {
        {true, NO_ANSWER, NO_ANSWER, true, BOTH, 0}, {true, NO_ANSWER, UNREACHABLE, true, BOTH, 0},
        {true, NO_ANSWER, 0, false, BOTH, 0},        {true, NO_ANSWER, 3, false, BOTH, 3},
        {true, UNREACHABLE, 0, true, BROADCAST, 0},  {true, 0, NO_ANSWER, false, BROADCAST, 0},
        {true, 4, NO_ANSWER, false, BROADCAST, 4},   {false, 0, NO_ANSWER, true, DIRECT, 0},
    };
    for (const auto &row : CASES) {
        SCOPED_TRACE(testing::Message() << row.broadcast << row.broadcastStatus << row.directStatus);
        PingsExitWith(row.broadcastStatus, row.directStatus);
        EXPECT_EQ(row.isFree, HBLPingAndCheckSubnet("192.168.40.0", row.broadcast, 2, 1));
        EXPECT_EQ(row.pings, TakePings());
        EXPECT_EQ(row.isFree ? ""
                             : "HBLPingAndCheckSubnet - Return value of orvane-ping: " +
                                   std::to_string(row.unusual) + "\n",
                  log_.Take());
    }
}

TEST_F(Subnets, ProgramsAreLookedForInBindirOfLessThan256Bytes) {
    HBLLogSetMask(LOG_ERR | LOG_WRN);
    cache_.Answer("BINDIR", std::string(256, 'b'));
    EXPECT_FALSE(HBLPingAndCheckSubnet("192.168.40.0", false, 2, 1));
    EXPECT_EQ("HBLPingAndCheckSubnet - Value of BINDIR is bigger than allowed 256 chracters\n", log_.Take());
    ASSERT_TRUE(HBLNetCfgRemoveAnswer(nullptr, "BINDIR"));
    testing::internal::CaptureStderr();
    EXPECT_FALSE(HBLPingAndCheckSubnet("192.168.40.0", false, 2, 1));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr(" /usr/bin/orvane-ping: "));
    EXPECT_EQ(
        "HBLPingAndCheckSubnet - Unable to find BINDIR in host config database.\n"
        "HBLPingAndCheckSubnet - Return value of orvane-ping: 127\n",
        log_.Take());
}

TEST_F(Subnets, ExportedProbeAndCheckHandOutWhatTheyFind) {
    PingsExitWith(UNREACHABLE, UNREACHABLE);
    bool available = true;
    EXPECT_FALSE(HBL_CheckSubnetAvailability("zelan8", true, 2, 1, &available)) << "without a subnet";
    EXPECT_TRUE(available);
    cache_.Answer("VNET_8_HOSTONLY_SUBNET", "192.168.40.0");
    EXPECT_TRUE(HBL_CheckSubnetAvailability("zelan8", false, 7, 3, &available));
    EXPECT_TRUE(available);
    EXPECT_EQ("-q 192.168.40.1 -t 7 -i 3\n", TakePings());
    PingsExitWith(0, 0);
    EXPECT_TRUE(HBL_CheckSubnetAvailability("zelan8", true, 2, 1, &available));
    EXPECT_FALSE(available);

    EXPECT_FALSE(HBL_GetUnusedSubnet(subnet_, 15, mask_, 16));
    EXPECT_FALSE(HBL_GetUnusedSubnet(subnet_, 16, mask_, 15));
    HBLBuildSubnetCandidates(HBLSubnetTables());
    HBLSubnetTables().cursor = HBLSubnetTables().candidateCount;
    log_.Take();
    EXPECT_FALSE(HBL_GetUnusedSubnet(subnet_, 16, mask_, 16));
    EXPECT_STREQ("untouched", subnet_);
    EXPECT_EQ("HBL_GetUnusedSubnet - Failed to probe for unused subnet\n", log_.Take());
}

TEST_F(Subnets, CandidatesAreAllThatIsNotConfiguredInRandomOrder) {
    cache_.Answer("VNET_3_HOSTONLY_SUBNET", "192.168.40.0");
    cache_.Answer("VNET_4_HOSTONLY_SUBNET", "172.16.255.0");
    cache_.Answer("VNET_4_HOSTONLY_NETMASK", "255.0.0.0");
    cache_.Answer("VNET_5_HOSTONLY_SUBNET", "10.0.0.0");
    cache_.Answer("VNET_6_HOSTONLY_SUBNET", "no address");
    std::set<uint32_t> expected;
    for (uint32_t i = 0; i < 256; i++) {
        expected.insert({0xC0A80000U + (i << 8), 0xAC100000U + (i << 8)});
    }
    expected.erase(0xC0A82800U);
    expected.erase(0xAC10FF00U);
    std::vector<uint32_t> orders[2];
    for (std::vector<uint32_t> &order : orders) {
        SubnetTables tables;
        HBLBuildSubnetCandidates(tables);
        for (uint32_t address = 0; HBLTakeSubnetCandidate(tables, &address);) {
            order.push_back(address);
        }
        EXPECT_EQ(510U, order.size());
        EXPECT_EQ(expected, std::set<uint32_t>(order.begin(), order.end()));
    }
    EXPECT_NE(orders[0], orders[1]);
}

TEST_F(Subnets, TenBusyAnswersEndTheCallAndTheNextGoesOn) {
    PingsExitWith(0, 0);
    EXPECT_FALSE(HBLSubnetProbe(subnet_, mask_));
    EXPECT_STREQ("untouched", subnet_);
    EXPECT_THAT(log_.Take(),
                testing::EndsWith("HBLSubnetProbe - Could not automatically determine available subnet.\n"));
    const std::string pings = TakePings();
    EXPECT_EQ(10, std::count(pings.begin(), pings.end(), '\n'));

    PingsExitWith(UNREACHABLE, 0);
    EXPECT_TRUE(HBLSubnetProbe(subnet_, mask_));
    EXPECT_EQ("-q -b " + Candidate(10) + " -t 2 -i 1\n", TakePings());
    EXPECT_EQ(Candidate(10), subnet_);
    EXPECT_STREQ("255.255.255.0", mask_);
}

TEST_F(Subnets, AssignmentOverwritesOnlyWhenAskedAndRemovalFreesTheCandidate) {
    PingsExitWith(UNREACHABLE, 0);
    cache_.Answer("VNET_8_HOSTONLY_SUBNET", "10.1.2.0");
    EXPECT_TRUE(HBL_AssignSubnetAddressToVnet("zelan8", false));
    EXPECT_EQ("10.1.2.0", HBLGetVnetCfg(8, VNET_FIELD_SUBNET));
    EXPECT_TRUE(HBL_AssignSubnetAddressToVnet("zelan8", true));
    EXPECT_EQ(Candidate(0), HBLGetVnetCfg(8, VNET_FIELD_SUBNET));
    EXPECT_EQ("255.255.255.0", HBLGetVnetCfg(8, VNET_FIELD_NETMASK));
    EXPECT_EQ(1, HBLSubnetTables().candidates[0].probed);
    EXPECT_TRUE(HBLRemoveVnetSubnet(8));
    EXPECT_EQ(0, HBLSubnetTables().candidates[0].probed);
    EXPECT_EQ(std::nullopt, HBLGetVnetCfg(8, VNET_FIELD_SUBNET));
    EXPECT_EQ(std::nullopt, HBLGetVnetCfg(8, VNET_FIELD_NETMASK));
}

}  // namespace
