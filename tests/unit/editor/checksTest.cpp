// What the editor refuses, and that it lets the rest pass.
#include <gmock/gmock.h>

#include <functional>

#include "apps/zelan/posix/harbrelctl/checks/checks.h"
#include "apps/zelan/posix/harbrelctl/model/keys.h"

namespace {

uint32_t Address(const char *text) {
    return ParseAddress(text).value_or(0);
}

// zelan8 behind NAT on 192.168.8.0/24, zelan9 host-only on 10.0.0.0/16.
Config Sound() {
    Config config;
    for (const char *word : {"subnet=192.168.8.0/24", "dhcp=on", "nat=on", "adapter=on"}) {
        EXPECT_EQ("", Assign(word, &config.networks[8]));
    }
    for (const char *word : {"subnet=10.0.0.0/16", "adapter=on"}) {
        EXPECT_EQ("", Assign(word, &config.networks[9]));
    }
    config.networks[8].forwards = {{true, 8888, Address("192.168.8.10"), 80, "web"}};
    config.networks[8].reservations = {{"02:00:00:00:00:01", Address("192.168.8.10")}};
    config.networks[9].forwards = {{false, 53, Address("10.0.0.9"), 53, ""}};
    return config;
}

const Surroundings &Around() {
    static const Surroundings around = {{{{Address("172.17.0.0"), MaskOf(16)}, "the bridge docker0"}},
                                        {{true, 22, "sshd (7)"}}};
    return around;
}

std::string Codes(const Config &config, int network) {
    std::string codes;
    for (const Problem &problem : CheckNetwork(config, network, Around())) {
        codes += codes.empty() ? "" : " ";
        codes += problem.code;
    }
    return codes;
}

TEST(EditorChecks, EachFaultHasItsCodeAndSoundSettingsHaveNone) {
    ASSERT_EQ("", Codes(Sound(), 8));
    const struct {
        const char *assignment;
        const char *codes;
    } values[] = {
        {"subnet=10.0.3.0/24", "subnet-overlaps-network reservation-outside-subnet forward-outside-subnet"},
        {"subnet=172.16.0.0/12", "subnet-overlaps-host reservation-outside-subnet forward-outside-subnet"},
        {"subnet=192.168.8.0/30",
         "subnet-size range-backwards reservation-outside-subnet forward-outside-subnet"},
        {"range=192.168.8.130-192.168.9.2", "address-outside-subnet"},
        {"range=192.168.8.60-192.168.8.50", "range-backwards"},
        {"range=192.168.8.2-192.168.8.50", "range-takes-address"},
        {"range=192.168.8.3-192.168.8.50", ""},
        {"gateway=192.168.8.1", "gateway-is-host"},
        {"gateway=192.168.8.255", "address-outside-subnet"},
        {"gateway=192.168.8.10", "reservation-takes-address"},
        {"lease-time=8000", "lease-time-above-maximum"},
        {"domain=a;b", "value-malformed"},
        {"domain=\"a.b\"", ""},
        {"adapter-name=much-too-long-a-name", "value-malformed"},
        {"dns=9.9.9.9", ""},
    };
    for (const auto &row : values) {
        Config config = Sound();
        EXPECT_EQ("", Assign(row.assignment, &config.networks[8])) << row.assignment;
        EXPECT_EQ(row.codes, Codes(config, 8)) << row.assignment;
    }
    const struct {
        std::function<void(NetworkConfig *)> spoil;
        const char *codes;
    } others[] = {
        {[](NetworkConfig *config) { config->stored[FIELD_SUBNET].reset(); },
         "subnet-malformed reservation-outside-subnet forward-outside-subnet"},
        {[](NetworkConfig *config) {
             config->forwards.push_back({true, 22, Address("192.168.8.10"), 22, ""});
         },
         "port-of-host"},
        {[](NetworkConfig *config) {
             config->forwards.push_back({false, 22, Address("192.168.8.10"), 22, ""});
         },
         ""},
        {[](NetworkConfig *config) {
             config->forwards.push_back({false, 53, Address("192.168.8.10"), 53, ""});
         },
         "port-of-network"},
        {[](NetworkConfig *config) { config->forwards[0].note = "two\nlines"; }, "note-malformed"},
        {[](NetworkConfig *config) {
             config->reservations.push_back({"02:00:00:00:00:02", Address("192.168.8.10")});
         },
         "reservation-twice"},
    };
    for (const auto &row : others) {
        Config config = Sound();
        row.spoil(&config.networks[8]);
        EXPECT_EQ(row.codes, Codes(config, 8));
    }
}

TEST(EditorChecks, WhatWasWrongBeforeDoesNotKeepFromChanging) {
    Config before = Sound();
    EXPECT_EQ("", Assign("subnet=10.0.8.0/24", &before.networks[8]));
    Config after = before;
    EXPECT_EQ("", Assign("lease-time=60", &after.networks[8]));
    EXPECT_EQ(0U, NewProblems(before, after, {8}, Around()).size());
    EXPECT_EQ("", Assign("lease-time=9999", &after.networks[8]));
    EXPECT_EQ(1U, NewProblems(before, after, {8}, Around()).size());
}

}  // namespace
