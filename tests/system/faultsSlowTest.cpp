// System calls that fail, and the tool killed, at many moments of its commands.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/moments.h"

namespace {

constexpr char FULL_SETTINGS[] =
    "answer HBL_DEFAULT_BRIDGE_VNET 3\nanswer VNET_1_DHCP yes\nanswer VNET_1_HOSTONLY_NETMASK 255.255.255.0\n"
    "answer VNET_1_HOSTONLY_SUBNET 10.7.1.0\nanswer VNET_1_VIRTUAL_ADAPTER yes\nanswer VNET_8_DHCP yes\n"
    "answer VNET_8_HOSTONLY_NETMASK 255.255.255.0\nanswer VNET_8_HOSTONLY_SUBNET 10.7.8.0\n"
    "answer VNET_8_NAT yes\nanswer VNET_8_VIRTUAL_ADAPTER yes\nadd_nat_portfwd 8 tcp 8080 10.7.8.5 80 web\n"
    "add_dhcp_mac_to_ip 8 00:0C:29:00:00:01 10.7.8.9\nadd_bridge_mapping eth7 2\n";

const Scenario COMMANDS[] = {
    {.name = "FreshPostinstall",
     .arguments = "--postinstall x,0,1",
     .settings = "",
     .mayLeaveNoDatabase = true},
    {.name = "Upgrade",
     .arguments = "--postinstall x,1.0,1.1",
     .settings = FULL_SETTINGS,
     .changesNothing = true},
    {.name = "Migration",
     .arguments = "--migrate-network-settings /run/settings",
     .settings = FULL_SETTINGS,
     .mayLeaveNoDatabase = true},
    {.name = "HostPolicy",
     .arguments = "--install-host-policy=172.16.200.0,1",
     .settings = FULL_SETTINGS,
     .daemonsRun = true},
    {.name = "Start",
     .arguments = "--start",
     .settings = FULL_SETTINGS,
     .daemonsRun = true,
     .changesNothing = true,
     .randomKills = 10},
    {.name = "Status",
     .arguments = "--status",
     .settings = FULL_SETTINGS,
     .status = 1,
     .changesNothing = true,
     .randomKills = 10},
};

// Not every chosen moment need come: subnets are drawn at random, and with them the number of calls varies.
void ExpectHits(const std::vector<Outcome> &outcomes, size_t least) {
    const auto hits = static_cast<size_t>(
        std::count_if(outcomes.begin(), outcomes.end(), [](const Outcome &o) { return !o.hit.empty(); }));
    EXPECT_GE(hits, least);
    EXPECT_GE(hits, outcomes.size() * 9 / 10);
}

class DisturbedSlow : public testing::TestWithParam<Scenario> {
  protected:
    static bool Has(const std::string &text, const std::string &part) {
        return text.find(part) != std::string::npos;
    }
    // A library of the program's that cannot be opened.
    static bool NeverBegan(const Outcome &outcome) {
        return outcome.disturbed.status == 127 && Has(outcome.disturbed.errors, "loading shared libraries");
    }
    static void ExpectGoodState(const Outcome &outcome, const Scenario &scenario, const std::string &twin) {
        EXPECT_TRUE(outcome.disturbed.status == 0 || outcome.disturbed.status == 1 || NeverBegan(outcome));
        EXPECT_TRUE(outcome.databaseLeft || (scenario.mayLeaveNoDatabase && outcome.disturbed.status != 0));
        EXPECT_EQ(!outcome.databaseLeft, Has(outcome.next.errors, "Failed to initialize"));
        EXPECT_EQ("", outcome.unreadable);
        if (scenario.changesNothing || (outcome.disturbed.status == 0 && scenario.status == 0)) {
            EXPECT_EQ(twin, outcome.database);
        }
        EXPECT_TRUE(Has(outcome.files, "/etc/orvane:\n") && Has(outcome.files, "/tmp:\n"));
        if (!Has(outcome.hit, "unlink")) {
            EXPECT_FALSE(Has(outcome.files, ".networking.") || Has(outcome.files, "networking.lck") ||
                         Has(outcome.files, "orvane."))
                << outcome.files;
        }
    }
};

TEST_P(DisturbedSlow, FailingCallLeavesADatabaseThatLoads) {
    const Moments moments(GetParam());
    const Injections injections = {{"write", "error=ENOSPC"},  {"rename", "error=EIO"},
                                   {"openat", "error=EACCES"}, {"mkdir", "error=ENOSPC"},
                                   {"unlink", "error=EIO"},    {"link", "error=EPERM"},
                                   {"vfork", "error=EAGAIN"}};
    const std::vector<Outcome> outcomes = moments.Disturb(injections, 10, "--status");
    ExpectHits(outcomes, 20);
    for (const Outcome &outcome : outcomes) {
        SCOPED_TRACE(outcome.moment + ": " + outcome.hit + outcome.disturbed.errors);
        if (!outcome.hit.empty()) {
            ExpectGoodState(outcome, GetParam(), moments.twin());
        }
    }
}

TEST_P(DisturbedSlow, KilledCommandRunsAgainToTheSameDatabase) {
    const Moments moments(GetParam());
    Injections injections;
    for (const char *call : {"write", "openat", "rename", "mkdir", "rmdir", "unlink", "link", "close"}) {
        injections[call] = "signal=KILL";
    }
    const std::string &again = GetParam().arguments;
    std::vector<Outcome> outcomes = moments.KillAtRandom(GetParam().randomKills, again);
    ExpectHits(outcomes, 9);
    for (const auto &more : {moments.Disturb(injections, 3, again),
                             moments.Disturb(injections, 6, again, "/etc/orvane/networking")}) {
        outcomes.insert(outcomes.end(), more.begin(), more.end());
    }
    for (const Outcome &outcome : outcomes) {
        SCOPED_TRACE(outcome.moment + ": " + outcome.hit + outcome.next.errors);
        EXPECT_EQ(GetParam().status, outcome.next.status);
        EXPECT_EQ(moments.twin(), outcome.database);
        EXPECT_EQ("", outcome.unreadable);
    }
}

INSTANTIATE_TEST_SUITE_P(Commands, DisturbedSlow, testing::ValuesIn(COMMANDS),
                         [](const auto &command) { return command.param.name; });

}  // namespace
