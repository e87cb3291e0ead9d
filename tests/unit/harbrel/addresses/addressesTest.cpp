#include "lib/harbrel/addresses/addresses.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/logCapture.h"

TEST(VnetName, ReadsTheNumberOrRefusesTheWholeName) {
    LogCapture log(HBL_MAX_LOG_MASK);
    for (const char *zero : {"zelan0", "ZELAN0", "zelan000"}) {
        EXPECT_EQ(0u, HBLVnetNameToNum(zero)) << zero;
    }
    EXPECT_EQ(255u, HBLVnetNameToNum("zElAn0255"));
    for (const char *bad : {"zelan256", "zelan2560", "zelan4294967296", "zelan8x", "zelan8 ", "zelan 8",
                            "zelan-1", "zelan", "zela", "eth0", ""}) {
        EXPECT_EQ(HBL_INVALID_VNET, HBLVnetNameToNum(bad)) << bad;
    }
    EXPECT_EQ("", log.Take());
}

TEST(IPAddress, ReadsDottedTextWithNothingBehindIt) {
    uint32_t address = 0;
    EXPECT_TRUE(HBLIPStr2Int("1.2.3.4", &address));
    EXPECT_EQ(0x01020304u, address);
    EXPECT_TRUE(HBLIPStr2Int("255.255.255.254", &address));
    EXPECT_EQ(0xFFFFFFFEu, address);
    LogCapture log;
    for (const char *bad : {"1.2.3", "1.2.3.4.5", "1.2.3.4 ", "1234.1.1.1", "1.1.1.1234", ""}) {
        EXPECT_FALSE(HBLIPStr2Int(bad, &address)) << bad;
        EXPECT_EQ("HBLIPStr2Int - sscanf failed\n", log.Take()) << bad;
    }
    EXPECT_FALSE(HBLIPStr2Int("1.2.3.256", &address));
    EXPECT_FALSE(HBLIPStr2Int("999.2.3.4", &address));
    EXPECT_EQ("HBLIPStr2Int - Invalid values: 1, 2, 3, 256\nHBLIPStr2Int - Invalid values: 999, 2, 3, 4\n",
              log.Take());
    EXPECT_EQ(0xFFFFFFFEu, address);
}

TEST(SubnetMask, AcceptsContiguousOnesWithRoomForEightHosts) {
    const std::string small = "HBLIsValidSubnetMask - The subnet is too small, we need at least 8 hosts\n";
    const std::string gap = "HBLIsValidSubnetMask - Mask is not a contiguous string of 1s: ";
    // What the log says about each; nothing: accepted.
    const std::pair<const char *, std::string> cases[] = {
        {"255.255.255.248", ""},
        {"128.0.0.0", ""},
        {"255.255.255.252", small},
        {"0.0.0.0", small},
        {"255.255.0.255", gap + "ffff00ff\n"},
        {"255.255.255.32", gap + "7fffff9\n"},
        {"255.255.255",
         "HBLIPStr2Int - sscanf failed\n"
         "HBLIsValidSubnetMask - Could not convert mask to integer: 255.255.255\n"},
    };
    LogCapture log;
    for (const auto &[mask, line] : cases) {
        EXPECT_EQ(line.empty(), HBLIsValidSubnetMask(mask)) << mask;
        EXPECT_EQ(line, log.Take()) << mask;
    }
}

TEST(MACAddress, TakesTheCanonicalForm) {
    char canonical[HBL_MAC_STR_SIZE] = "before";
    const std::pair<const char *, int> refused[] = {
        {"aa:bb:cc:dd:ee", 5},    {"aa:bb:cc:dd:ee:ff:00", 7}, {"aaa:bb:cc:dd:ee:ff", 1},
        {"-1:-1:-1:-1:-1:-1", 6}, {"gg:bb:cc:dd:ee:ff", 0},    {"", -1},
    };
    LogCapture log;
    for (const auto &[mac, scanned] : refused) {
        EXPECT_FALSE(HBLMACStandardizeFormat(mac, canonical)) << mac;
        EXPECT_EQ(
            "HBLMACStandardizeFormat - sscanf failed, scanned " + std::to_string(scanned) + " elements\n",
            log.Take());
    }
    EXPECT_STREQ("before", canonical);
    EXPECT_TRUE(HBLMACStandardizeFormat("0:1:2:a:b:c", canonical));
    EXPECT_STREQ("00:01:02:0A:0B:0C", canonical);
    EXPECT_TRUE(HBLMACStandardizeFormat("00:50:56:Ab:cD:ef", canonical));
    EXPECT_STREQ("00:50:56:AB:CD:EF", canonical);
    EXPECT_TRUE(HBLMACStrIsValid("0:1:2:a:b:c"));
    EXPECT_FALSE(HBLMACStrIsValid("0:1:2:a:b"));
}

TEST(NetworkID, ChecksVersionTypeAndNumberInThisOrder) {
    // What the log says about each; nothing: valid.
    const std::pair<HBL_NetworkID, const char *> cases[] = {
        {{1, 1, HBL_VNET_NONE, {}}, ""},
        {{1, 1, 255, {}}, ""},
        {{1, 1, -2, {}}, "HBLValidateNetIDStruct - Invalid vnet number: -2\n"},
        {{1, 1, 256, {}}, "HBLValidateNetIDStruct - Invalid vnet number: 256\n"},
        {{1, 2, 256, {}}, "HBLValidateNetIDStruct - Non vnet network not supported\n"},
        {{0, 2, 256, {}}, "HBLValidateNetIDStruct - Unsupported network ID version: 0\n"},
    };
    LogCapture log;
    for (const auto &[id, line] : cases) {
        EXPECT_EQ(*line == '\0', HBLValidateNetIDStruct(&id)) << line;
        EXPECT_EQ(line, log.Take());
    }
}
