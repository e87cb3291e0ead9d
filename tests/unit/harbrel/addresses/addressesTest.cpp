#include "lib/harbrel/addresses/addresses.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/logCapture.h"

namespace {

TEST(VnetName, ReadsTheNumberOrRefusesTheWholeName) {
    const struct {
        const char *name;
        uint32_t number;
    } cases[] = {
        {"zelan0", 0},
        {"ZELAN0", 0},
        {"zelan000", 0},
        {"zElAn0255", 255},
        {"zelan255", 255},
        {"zelan256", HBL_INVALID_VNET},
        {"zelan2560", HBL_INVALID_VNET},
        {"zelan4294967296", HBL_INVALID_VNET},
        {"zelan8x", HBL_INVALID_VNET},
        {"zelan8 ", HBL_INVALID_VNET},
        {"zelan 8", HBL_INVALID_VNET},
        {"zelan-1", HBL_INVALID_VNET},
        {"zelan", HBL_INVALID_VNET},
        {"zela", HBL_INVALID_VNET},
        {"eth0", HBL_INVALID_VNET},
        {"", HBL_INVALID_VNET},
    };
    LogCapture log(HBL_MAX_LOG_MASK);
    for (const auto &row : cases) {
        EXPECT_EQ(row.number, HBLVnetNameToNum(row.name)) << row.name;
    }
    EXPECT_EQ("", log.Take());
}

TEST(VnetName, NumberAbove255LeavesTheBufferAlone) {
    char name[HBL_VNET_NAME_SIZE] = "before";
    EXPECT_FALSE(HBLVnetNumToName(256, name));
    EXPECT_STREQ("before", name);
    EXPECT_TRUE(HBLVnetNumToName(255, name));
    EXPECT_STREQ("zelan255", name);
}

TEST(IPAddress, ReadsDottedTextWithNothingBehindIt) {
    const struct {
        const char *text;
        bool valid;
        uint32_t address;
        const char *log;
    } cases[] = {
        {"1.2.3.4", true, 0x01020304, ""},
        {"255.255.255.255", true, 0xFFFFFFFF, ""},
        {"001.002.003.004", true, 0x01020304, ""},
        {"1.2.3", false, 0, "HBLIPStr2Int - sscanf failed\n"},
        {"1.2.3.4.5", false, 0, "HBLIPStr2Int - sscanf failed\n"},
        {"1.2.3.4 ", false, 0, "HBLIPStr2Int - sscanf failed\n"},
        {"1234.1.1.1", false, 0, "HBLIPStr2Int - sscanf failed\n"},
        {"1.1.1.1234", false, 0, "HBLIPStr2Int - sscanf failed\n"},
        {"", false, 0, "HBLIPStr2Int - sscanf failed\n"},
        {"1.2.3.256", false, 0, "HBLIPStr2Int - Invalid values: 1, 2, 3, 256\n"},
        {"999.2.3.4", false, 0, "HBLIPStr2Int - Invalid values: 999, 2, 3, 4\n"},
    };
    LogCapture log;
    for (const auto &row : cases) {
        uint32_t address = 0;
        EXPECT_EQ(row.valid, HBLIPStr2Int(row.text, &address)) << row.text;
        EXPECT_EQ(row.address, address) << row.text;
        EXPECT_EQ(row.log, log.Take()) << row.text;
    }
}

TEST(IPAddress, ComputesBroadcastAndAdapterAddress) {
    char text[HBL_IP_STR_SIZE] = "before";
    EXPECT_TRUE(HBLGetBcastAddr("192.168.40.1", "255.255.255.0", text));
    EXPECT_STREQ("192.168.40.255", text);
    EXPECT_TRUE(HBLGetBcastAddr("10.1.2.3", "255.240.0.0", text));
    EXPECT_STREQ("10.15.255.255", text);
    EXPECT_TRUE(HBLGetDefaultAdapterAddr("192.168.40.0", text));
    EXPECT_STREQ("192.168.40.1", text);
    EXPECT_TRUE(HBLGetDefaultAdapterAddr("10.0.0.255", text));
    EXPECT_STREQ("10.0.1.0", text);
}

TEST(IPAddress, OutputStaysUntouchedWhenAnInputIsBad) {
    LogCapture log;
    char text[HBL_IP_STR_SIZE] = "before";
    EXPECT_FALSE(HBLGetBcastAddr("192.168.40.1", "none", text));
    EXPECT_FALSE(HBLGetDefaultAdapterAddr("192.168.40", text));
    EXPECT_STREQ("before", text);
    EXPECT_EQ("HBLIPStr2Int - sscanf failed\nHBLIPStr2Int - sscanf failed\n", log.Take());
    EXPECT_FALSE(HBLGetBcastAddr(nullptr, "255.255.255.0", text));
    EXPECT_FALSE(HBLGetBcastAddr("192.168.40.1", nullptr, text));
    EXPECT_FALSE(HBLGetBcastAddr("192.168.40.1", "255.255.255.0", nullptr));
    EXPECT_EQ(
        "HBLGetBcastAddr - Invalid arguments\nHBLGetBcastAddr - Invalid arguments\n"
        "HBLGetBcastAddr - Invalid arguments\n",
        log.Take());
}

TEST(SubnetMask, AcceptsContiguousOnesWithRoomForEightHosts) {
    const std::string small = "HBLIsValidSubnetMask - The subnet is too small, we need at least 8 hosts\n";
    const std::string gap = "HBLIsValidSubnetMask - Mask is not a contiguous string of 1s: ";
    const struct {
        const char *mask;
        std::string log;  // empty: accepted
    } cases[] = {
        {"255.255.255.0", ""},
        {"255.255.255.248", ""},
        {"128.0.0.0", ""},
        {"255.255.255.252", small},
        {"255.255.255.255", small},
        {"0.0.0.0", small},
        {"255.255.0.255", gap + "ffff00ff\n"},
        {"255.255.255.32", gap + "7fffff9\n"},
        {"255.255.255",
         "HBLIPStr2Int - sscanf failed\n"
         "HBLIsValidSubnetMask - Could not convert mask to integer: 255.255.255\n"},
    };
    LogCapture log;
    for (const auto &row : cases) {
        EXPECT_EQ(row.log.empty(), HBLIsValidSubnetMask(row.mask)) << row.mask;
        EXPECT_EQ(row.log, log.Take()) << row.mask;
    }
}

TEST(MACAddress, TakesTheCanonicalForm) {
    const struct {
        const char *mac;
        const char *canonical;  // null: refused
        const char *log;
    } cases[] = {
        {"aa:bb:cc:dd:ee:ff", "AA:BB:CC:DD:EE:FF", ""},
        {"0:1:2:a:b:c", "00:01:02:0A:0B:0C", ""},
        {"00:50:56:Ab:cD:ef", "00:50:56:AB:CD:EF", ""},
        {"aa:bb:cc:dd:ee", nullptr, "scanned 5 elements\n"},
        {"aa:bb:cc:dd:ee:ff:00", nullptr, "scanned 7 elements\n"},
        {"aa:bb:cc:dd:ee:ff ", nullptr, "scanned 7 elements\n"},
        {"aaa:bb:cc:dd:ee:ff", nullptr, "scanned 1 elements\n"},
        {"-1:-1:-1:-1:-1:-1", nullptr, "scanned 6 elements\n"},
        {"gg:bb:cc:dd:ee:ff", nullptr, "scanned 0 elements\n"},
        {"", nullptr, "scanned -1 elements\n"},
    };
    LogCapture log;
    for (const auto &row : cases) {
        char canonical[HBL_MAC_STR_SIZE] = "before";
        EXPECT_EQ(row.canonical != nullptr, HBLMACStandardizeFormat(row.mac, canonical)) << row.mac;
        EXPECT_STREQ(row.canonical != nullptr ? row.canonical : "before", canonical);
        const std::string prefix =
            row.canonical == nullptr ? "HBLMACStandardizeFormat - sscanf failed, " : "";
        EXPECT_EQ(prefix + row.log, log.Take()) << row.mac;
    }
}

TEST(NetworkID, ChecksVersionTypeAndNumberInThisOrder) {
    const struct {
        HBL_NetworkID id;
        const char *log;  // empty: valid
    } cases[] = {
        {{1, 1, HBL_VNET_NONE, {}}, ""},
        {{1, 1, 255, {}}, ""},
        {{1, 1, -2, {}}, "HBLValidateNetIDStruct - Invalid vnet number: -2\n"},
        {{1, 1, 256, {}}, "HBLValidateNetIDStruct - Invalid vnet number: 256\n"},
        {{1, 2, 256, {}}, "HBLValidateNetIDStruct - Non vnet network not supported\n"},
        {{0, 2, 256, {}}, "HBLValidateNetIDStruct - Unsupported network ID version: 0\n"},
    };
    LogCapture log;
    for (const auto &row : cases) {
        EXPECT_EQ(*row.log == '\0', HBLValidateNetIDStruct(&row.id)) << row.log;
        EXPECT_EQ(row.log, log.Take());
    }
}

}  // namespace
