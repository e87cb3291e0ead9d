// What the editor refuses, and that it lets the rest pass.
#include <gtest/gtest.h>

#include <sstream>

#include "apps/zelan/posix/harbrelctl/checks/checks.h"
#include "apps/zelan/posix/harbrelctl/model/keys.h"

namespace {

uint32_t Address(const char *text) {
    return ParseAddress(text).value_or(0);
}

// zelan8 behind NAT on 192.168.8.0/24, zelan9 host-only on 10.0.0.0/16, where neither DHCP nor a gateway is.
Config Sound() {
    Config config;
    for (const char *word : {"subnet=192.168.8.0/24", "dhcp=on", "nat=on", "adapter=on"}) {
        EXPECT_EQ("", Assign(word, &config.networks[8]));
    }
    for (const char *word : {"subnet=10.0.0.0/16", "adapter=on", "range=10.0.0.9-10.0.0.3"}) {
        EXPECT_EQ("", Assign(word, &config.networks[9]));
    }
    config.networks[8].forwards = {{true, 8888, Address("192.168.8.10"), 80, "web"}};
    config.networks[8].reservations = {{"02:00:00:00:00:01", Address("192.168.8.10")}};
    config.networks[9].reservations = {{"02:00:00:00:00:01", Address("10.0.0.2")}};
    config.networks[9].forwards = {{false, 8888, Address("10.0.0.9"), 53, ""}};
    return config;
}

const Surroundings &Around() {
    static const Surroundings around = {{{{Address("172.17.0.0"), MaskOf(16)}, "the bridge docker0"}},
                                        {{true, 22, "sshd (7)"}, {false, 8888, "named (8)"}}};
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
    ASSERT_EQ("port-of-host", Codes(Sound(), 8) + Codes(Sound(), 9));
    // Assignments, each with the codes that it earns.
    std::istringstream rows(
        "subnet=10.0.3.0/24 subnet-overlaps-network reservation-outside-subnet forward-outside-subnet\n"
        "subnet=172.16.0.0/12 subnet-overlaps-host reservation-outside-subnet forward-outside-subnet\n"
        "subnet=192.168.8.0/30 subnet-size range-backwards reservation-outside-subnet "
        "forward-outside-subnet\n"
        "subnet=11.0.0.0/8 reservation-outside-subnet forward-outside-subnet\n"
        "subnet=12.0.0.0/7 subnet-size reservation-outside-subnet forward-outside-subnet\n"
        "subnet=192.168.8.8/29 reservation-takes-address\nrange=192.168.8.130-192.168.9.2 "
        "address-outside-subnet\n"
        "range=192.168.8.60-192.168.8.59 range-backwards\nrange=192.168.8.60-192.168.8.60\n"
        "range=192.168.8.2-192.168.8.50 range-takes-address\nrange=192.168.8.3-192.168.8.50\n"
        "gateway=192.168.8.1 gateway-is-host\ngateway=192.168.8.0 address-outside-subnet\n"
        "gateway=192.168.8.255 address-outside-subnet\ngateway=192.168.8.10 reservation-takes-address\n"
        "gateway=192.168.8.128\ngateway=192.168.8.254 range-takes-address\n"
        "routers=192.168.9.1 address-outside-subnet\nlease-time=7200\nlease-time=7201 "
        "lease-time-above-maximum\n"
        "active-ftp=on\ndomain=a;b value-malformed\ndomain=\"\" value-malformed\ndomain=\"a.b\"\n"
        "domain=sixty-three-letters-are-the-most-that-a-name-of-a-domain-may-be\n"
        "domain=sixty-three-letters-are-the-most-that-a-name-of-a-domain-may-be4 value-malformed\n"
        "adapter-name=fifteen-letters\nadapter-name=sixteen-letters- value-malformed\n"
        "adapter-name=. value-malformed\nadapter-name=.. value-malformed\nadapter-name=azAZ09-_.\n");
    for (std::string assignment, codes; rows >> assignment && std::getline(rows, codes);) {
        Config config = Sound();
        EXPECT_EQ("", Assign(assignment, &config.networks[8])) << assignment;
        EXPECT_EQ(codes.erase(0, 1), Codes(config, 8)) << assignment;
    }
    for (const char letter : {'`', '{', '@', '[', '/', ':'}) {  // beside those of a name
        Config config = Sound();
        config.networks[8].stored[FIELD_ADAPTER_NAME].emplace(1, letter);
        EXPECT_EQ("value-malformed", Codes(config, 8)) << letter;
    }
    using Spoil = void (*)(NetworkConfig *);
    const std::pair<Spoil, const char *> others[] = {
        {[](auto *config) { config->stored[FIELD_SUBNET].reset(); },
         "subnet-malformed reservation-outside-subnet forward-outside-subnet"},
        {[](auto *config) { config->stored[FIELD_SUBNET] = config->stored[FIELD_MASK] = std::nullopt; },
         "subnet-missing subnet-missing subnet-missing reservation-outside-subnet forward-outside-subnet"},
        {[](auto *config) { config->stored[FIELD_DNS].emplace("10.0.0"); }, "value-malformed"},
        {[](auto *config) { config->stored[FIELD_ACTIVE_FTP].emplace("2"); }, "value-malformed"},
        {[](auto *config) { config->stored[FIELD_UDP_TIMEOUT].emplace("1000000000"); }, "value-malformed"},
        {[](auto *config) { config->forwards[0].hostPort = 22; }, "port-of-host"},
        {[](auto *config) { config->forwards[0].tcp = false; }, "port-of-network port-of-host"},
        {[](auto *config) { config->forwards[0].guest = Address("192.168.8.0"); }, "forward-outside-subnet"},
        {[](auto *config) { config->forwards[0].guest = Address("192.168.8.255"); },
         "forward-outside-subnet"},
        {[](auto *config) { config->forwards[0].note = "two\nlines"; }, "note-malformed"},
        {[](auto *config) { config->forwards[0].note = std::string(127, 'x'); }, ""},
        {[](auto *config) { config->forwards[0].note = std::string(128, 'x'); }, "note-malformed"},
        {[](auto *config) { config->reservations.resize(2, config->reservations[0]); }, "reservation-twice"},
        {[](auto *config) { config->reservations[0].address = Address("192.168.8.255"); },
         "reservation-outside-subnet"},
        {[](auto *config) { config->reservations[0].address = Address("192.168.8.2"); },
         "reservation-takes-address"},
    };
    for (const auto &[spoil, codes] : others) {
        Config config = Sound();
        spoil(&config.networks[8]);
        EXPECT_EQ(codes, Codes(config, 8));
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
