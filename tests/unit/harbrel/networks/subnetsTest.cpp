// Candidates, probing and assignment, with a script in the place of orvane-ping.
#include "lib/harbrel/networks/subnets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <thread>

#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/harbrel.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/harbrel/networks/subnetTables.h"
#include "tests/support/command.h"
#include "tests/support/fakePrograms.h"
#include "tests/support/logCapture.h"

namespace {

using testing::EndsWith;

constexpr int NO_ANSWER = 1;
constexpr int UNREACHABLE = 2;

class Subnets : public testing::Test {
  protected:
    Subnets() {
        cache_.Program("orvane-ping",
                       "echo \"$@\" >> $DIR/pings\n"
                       "case $2 in -b) exit $(cat $DIR/broadcast);; *) exit $(cat $DIR/direct);; esac\n");
        HBLSubnetTables() = {};
    }
    void PingsExitWith(int broadcast, int direct) {
        WriteFileText(cache_.Path("broadcast"), std::to_string(broadcast));
        WriteFileText(cache_.Path("direct"), std::to_string(direct));
    }
    std::string TakePings() {
        const std::string pings = ReadFileText(cache_.Path("pings"));
        std::filesystem::remove(cache_.Path("pings"));
        return pings;
    }

    FakePrograms cache_;
};

struct PingCase {
    bool broadcast;
    int broadcastStatus;
    int directStatus;
    bool isFree;
    const char *pings;
};

constexpr const char *BROADCAST = "-q -b 192.168.40.0 -t 2 -i 1\n";
constexpr const char *DIRECT = "-q 192.168.40.1 -t 2 -i 1\n";
constexpr const char *BOTH = "-q -b 192.168.40.0 -t 2 -i 1\n-q 192.168.40.1 -t 2 -i 1\n";

TEST_F(Subnets, ExitStatusesOfThePingsDecide) {
    static constexpr PingCase CASES[] = {
        {true, NO_ANSWER, NO_ANSWER, true, BOTH}, {true, NO_ANSWER, UNREACHABLE, true, BOTH},
        {true, NO_ANSWER, 0, false, BOTH},        {true, NO_ANSWER, 3, false, BOTH},
        {true, UNREACHABLE, 0, true, BROADCAST},  {true, 0, NO_ANSWER, false, BROADCAST},
        {true, 3, NO_ANSWER, false, BROADCAST},   {true, 127, NO_ANSWER, false, BROADCAST},
        {false, 0, NO_ANSWER, true, DIRECT},      {false, 0, UNREACHABLE, true, DIRECT},
        {false, NO_ANSWER, 0, false, DIRECT},
    };
    for (const PingCase &row : CASES) {
        SCOPED_TRACE(testing::Message() << row.broadcast << row.broadcastStatus << row.directStatus);
        LogCapture log;
        PingsExitWith(row.broadcastStatus, row.directStatus);
        EXPECT_EQ(row.isFree, HBLPingAndCheckSubnet("192.168.40.0", row.broadcast, 2, 1));
        EXPECT_EQ(row.pings, TakePings());
        EXPECT_EQ(row.isFree, log.Take().empty());
    }
}

TEST_F(Subnets, WhatCannotBePingedCountsAsBusy) {
    PingsExitWith(NO_ANSWER, NO_ANSWER);
    EXPECT_FALSE(HBLPingAndCheckSubnet("no address", false, 2, 1));
    cache_.Answer("BINDIR", std::string(256, 'x'));
    LogCapture log;
    EXPECT_FALSE(HBLPingAndCheckSubnet("192.168.40.0", false, 2, 1));
    EXPECT_EQ("HBLPingAndCheckSubnet - Value of BINDIR is bigger than allowed 256 chracters\n", log.Take());
    EXPECT_EQ("", TakePings());
    cache_.Answer("BINDIR", "/nowhere");
    EXPECT_FALSE(HBLPingAndCheckSubnet("192.168.40.0", false, 2, 1));
    EXPECT_EQ("HBLPingAndCheckSubnet - Return value of orvane-ping: 127\n", log.Take());
}

std::vector<uint32_t> TakeAllCandidates(SubnetTables &tables) {
    std::vector<uint32_t> order;
    for (uint32_t address = 0; HBLTakeSubnetCandidate(tables, &address);) {
        order.push_back(address);
    }
    return order;
}

TEST_F(Subnets, CandidatesAreAllThatIsNotConfiguredInRandomOrder) {
    cache_.Answer("VNET_3_HOSTONLY_SUBNET", "192.168.40.0");
    cache_.Answer("VNET_4_HOSTONLY_SUBNET", "172.16.255.0");
    cache_.Answer("VNET_4_HOSTONLY_NETMASK", "255.0.0.0");
    cache_.Answer("VNET_5_HOSTONLY_SUBNET", "10.0.0.0");
    cache_.Answer("VNET_6_HOSTONLY_SUBNET", "no address");
    std::set<uint32_t> expected;
    for (uint32_t i = 0; i < 256; i++) {
        expected.insert(0xC0A80000U + (i << 8));
        expected.insert(0xAC100000U + (i << 8));
    }
    expected.erase(0xC0A82800U);
    expected.erase(0xAC10FF00U);

    SubnetTables tables;
    HBLBuildSubnetCandidates(tables);
    const std::vector<uint32_t> order = TakeAllCandidates(tables);
    EXPECT_EQ(510U, order.size());
    EXPECT_EQ(expected, std::set<uint32_t>(order.begin(), order.end()));
    SubnetTables again;
    HBLBuildSubnetCandidates(again);
    EXPECT_NE(order, TakeAllCandidates(again));
}

TEST_F(Subnets, TenBusyAnswersEndTheCallAndTheNextGoesOn) {
    char subnet[HBL_IP_STR_SIZE] = "untouched";
    char mask[HBL_IP_STR_SIZE] = "untouched";
    PingsExitWith(0, 0);
    LogCapture log;
    EXPECT_FALSE(HBLSubnetProbe(subnet, mask));
    EXPECT_STREQ("untouched", subnet);
    EXPECT_THAT(log.Take(),
                EndsWith("HBLSubnetProbe - Could not automatically determine available subnet.\n"));
    const std::string pings = TakePings();
    EXPECT_EQ(10, std::count(pings.begin(), pings.end(), '\n'));

    PingsExitWith(UNREACHABLE, 0);
    EXPECT_TRUE(HBLSubnetProbe(subnet, mask));
    EXPECT_EQ("-q -b " + std::string(subnet) + " -t 2 -i 1\n", TakePings());
    uint32_t offered = 0;
    EXPECT_TRUE(HBLIPStr2Int(subnet, &offered));
    EXPECT_EQ(HBLSubnetTables().candidates[10].address, offered);
    EXPECT_STREQ("255.255.255.0", mask);
}

TEST_F(Subnets, ProbedEntriesArePassedOverAndAUsedUpTableFails) {
    SubnetTables &tables = HBLSubnetTables();
    HBLBuildSubnetCandidates(tables);
    PingsExitWith(UNREACHABLE, 0);
    char subnet[HBL_IP_STR_SIZE];
    char mask[HBL_IP_STR_SIZE];
    tables.cursor = tables.candidateCount - 2;
    HBLIPInt2Str(tables.candidates[tables.cursor].address, subnet);
    HBLMarkSubnetProbed(subnet, 1);
    EXPECT_TRUE(HBL_GetUnusedSubnet(subnet, sizeof subnet, mask, sizeof mask));
    uint32_t offered = 0;
    EXPECT_TRUE(HBLIPStr2Int(subnet, &offered));
    EXPECT_EQ(tables.candidates[tables.candidateCount - 1].address, offered);

    LogCapture log;
    HBLMarkSubnetProbed(subnet, 0);  // freed, but the walk has passed it
    EXPECT_FALSE(HBL_GetUnusedSubnet(subnet, sizeof subnet, mask, sizeof mask));
    EXPECT_EQ("HBL_GetUnusedSubnet - Failed to probe for unused subnet\n", log.Take());
}

TEST_F(Subnets, UnusedSubnetNeedsTwoBuffersOfSixteenBytes) {
    char buffer[HBL_IP_STR_SIZE];
    EXPECT_FALSE(HBL_GetUnusedSubnet(buffer, 15, buffer, 16));
    EXPECT_FALSE(HBL_GetUnusedSubnet(buffer, 16, buffer, 15));
    EXPECT_FALSE(HBL_GetUnusedSubnet(nullptr, 16, buffer, 16));
    EXPECT_FALSE(HBLSubnetTables().candidatesBuilt);
}

TEST_F(Subnets, AssignmentOverwritesOnlyWhenAsked) {
    PingsExitWith(UNREACHABLE, 0);
    cache_.Answer("VNET_8_HOSTONLY_SUBNET", "10.1.2.0");
    EXPECT_TRUE(HBL_AssignSubnetAddressToVnet("zelan8", false));
    EXPECT_STREQ("10.1.2.0", HBLGetVnetCfg(8, VNET_FIELD_SUBNET));
    EXPECT_EQ(nullptr, HBLGetVnetCfg(8, VNET_FIELD_NETMASK));
    EXPECT_TRUE(HBL_AssignSubnetAddressToVnet("zelan8", true));
    uint32_t assigned = 0;
    EXPECT_TRUE(HBLIPStr2Int(HBLGetVnetCfg(8, VNET_FIELD_SUBNET), &assigned));
    EXPECT_EQ(HBLSubnetTables().candidates[0].address, assigned);
    EXPECT_STREQ("255.255.255.0", HBLGetVnetCfg(8, VNET_FIELD_NETMASK));
}

TEST_F(Subnets, RemovalTakesAddressAndMaskAndFreesTheCandidate) {
    PingsExitWith(UNREACHABLE, 0);
    ASSERT_TRUE(HBLAssignUnusedSubnetAddressToVNet(8));
    EXPECT_EQ(1, HBLSubnetTables().candidates[0].probed);
    EXPECT_TRUE(HBLRemoveVnetSubnet(8));
    EXPECT_EQ(0, HBLSubnetTables().candidates[0].probed);
    EXPECT_EQ(nullptr, HBLGetVnetCfg(8, VNET_FIELD_SUBNET));
    EXPECT_EQ(nullptr, HBLGetVnetCfg(8, VNET_FIELD_NETMASK));
    EXPECT_TRUE(HBLRemoveVnetSubnet(8));
}

TEST_F(Subnets, AvailabilityOfManyNetworksAtOnce) {
    cache_.Program("orvane-ping", "case $2 in 10.0.*[02468].1) exit 1;; *) exit 0;; esac\n");
    constexpr uint32_t NETWORKS = 24;
    for (uint32_t i = 0; i < NETWORKS; i++) {
        ASSERT_TRUE(HBLSetVnetSubnetAddr(i, ("10.0." + std::to_string(i) + ".0").c_str()));
    }
    LogCapture log(127);
    bool called[NETWORKS] = {};
    bool available[NETWORKS] = {};
    std::vector<std::thread> threads;
    for (uint32_t i = 0; i < NETWORKS; i++) {
        threads.emplace_back([&, i] {
            const std::string name = "zelan" + std::to_string(i);
            called[i] = HBL_CheckSubnetAvailability(name.c_str(), false, 2, 1, &available[i]);
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    for (uint32_t i = 0; i < NETWORKS; i++) {
        EXPECT_TRUE(called[i]) << i;
        EXPECT_EQ(i % 2 == 0, available[i]) << i;
    }
    EXPECT_FALSE(HBLSubnetTables().configuredFilled);
}

TEST_F(Subnets, BusySubnetIsAnAnswerAndNoSubnetIsAFailure) {
    LogCapture log(LOG_ERR | LOG_OK);
    bool available = true;
    EXPECT_FALSE(HBL_CheckSubnetAvailability("zelan8", false, 2, 1, &available));
    EXPECT_EQ("HBL_CheckSubnetAvailability - Failure in getting subnet address\n", log.Take());
    EXPECT_TRUE(available);
    PingsExitWith(0, 0);
    ASSERT_TRUE(HBLSetVnetSubnetAddr(8, "10.0.8.0"));
    EXPECT_TRUE(HBL_CheckSubnetAvailability("zelan8", false, 2, 1, &available));
    EXPECT_FALSE(available);
    EXPECT_THAT(log.Take(), EndsWith("Subnet: 10.0.8.0 on vnet: zelan8 is not rechable\n"));
}

}  // namespace
