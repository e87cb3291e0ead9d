#include <gtest/gtest.h>

#include <string>

#include "lib/harbrel/harbrel.h"
#include "lib/harbrel/networks/settings.h"
#include "tests/support/logCapture.h"
#include "tests/support/openCache.h"

namespace {

using Setter = bool (*)(const char *vnet, const char *value);
using Getter = bool (*)(const char *vnet, char *out, uint32_t *len);

struct AddressKind {
    const char *field;
    Setter set;
    std::string setName;
    std::string setLine;
    std::string removedLine;
    const char *bad;
    std::string badLine;  // the last line of the refusal
    Getter get;
    std::string getName;
    std::string missingLine;
    std::string argumentWord;
};

const AddressKind KINDS[] = {
    {VNET_FIELD_SUBNET, HBL_SetVnetSubnetAddr, "HBL_SetVnetSubnetAddr",
     "Successfully set set the subnet address for vnet: ZELAN8\n",
     "Successfully removed set the subnet address for vnet: ZELAN8\n", "10.0.0",
     "Subnet address is not valid: 10.0.0\n", HBL_GetVnetSubnetAddr, "HBL_GetVnetSubnetAddr",
     "Failure in getting subnet address\n", "addr"},
    {VNET_FIELD_NETMASK, HBL_SetVnetSubnetMask, "HBL_SetVnetSubnetMask",
     "Successfully set the mask for vnet: ZELAN8\n", "Successfully removed the mask for vnet: ZELAN8\n",
     "255.255.255.252", "Specified mask is not valid\n", HBL_GetVnetSubnetMask, "HBL_GetVnetSubnetMask",
     "Failure in getting subnet mask\n", "mask"},
    {VNET_FIELD_ADAPTER_ADDR, HBL_SetVnetAdapterAddr, "HBL_SetVnetAdapterAddr",
     "Successfully set adapter address for vnet: ZELAN8\n",
     "Successfully removed adapter address for vnet: ZELAN8\n", "10.0.0.256",
     "Invalid adapter IP address: 10.0.0.256\n",
     [](const char *vnet, char *out, uint32_t *len) { return HBL_GetVnetAdapterAddr(vnet, out, len, false); },
     "HBL_GetVnetAdapterAddr", "Failure in getting the adapter address\n", "addr"},
};

bool EndsWith(const std::string &text, const std::string &end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

TEST(AddressSettings, SetterStoresAndWithNullRemoves) {
    const OpenCache cache;
    LogCapture log(LOG_ERR | LOG_OK);
    for (const AddressKind &kind : KINDS) {
        EXPECT_TRUE(kind.set("ZELAN8", "255.255.0.0"));
        EXPECT_EQ(kind.setName + " - " + kind.setLine, log.Take());
        EXPECT_STREQ("255.255.0.0", HBLGetVnetCfg(8, kind.field));
        EXPECT_TRUE(kind.set("ZELAN8", nullptr));
        EXPECT_EQ(kind.setName + " - " + kind.removedLine, log.Take());
        EXPECT_EQ(nullptr, HBLGetVnetCfg(8, kind.field));
    }
}

TEST(AddressSettings, RefusedSettingChangesNothing) {
    const OpenCache cache;
    const std::string before = ReadFileText(cache.Database());
    LogCapture log;
    for (const AddressKind &kind : KINDS) {
        EXPECT_FALSE(kind.set(nullptr, "255.255.0.0"));
        EXPECT_EQ(kind.setName + " - Invalid argument - vnet: (nil)\n", log.Take());
        EXPECT_FALSE(kind.set("zelan256", "255.255.0.0"));
        EXPECT_EQ(kind.setName + " - Invalid vnet name: zelan256\n", log.Take());
        EXPECT_FALSE(kind.set("zelan8", kind.bad));
        EXPECT_TRUE(EndsWith(log.Take(), kind.setName + " - " + kind.badLine)) << kind.badLine;
    }
    EXPECT_EQ(before, ReadFileText(cache.Database()));
}

TEST(AddressSettings, SetterNeedsTheLockAndGivesItBack) {
    const OpenCache cache;
    LogCapture log;
    ASSERT_TRUE(HBLNetCfgLockConfig(nullptr));
    for (const AddressKind &kind : KINDS) {
        EXPECT_FALSE(kind.set("zelan8", "255.255.0.0"));
        EXPECT_EQ(kind.setName + " - Failed to obtain lock on vnet config\n", log.Take());
    }
    ASSERT_TRUE(HBLNetCfgUnlockConfig(nullptr));
    EXPECT_TRUE(HBL_SetVnetSubnetAddr("zelan8", "10.0.0.0"));
    EXPECT_TRUE(HBLNetCfgLockConfig(nullptr));
}

TEST(AddressSettings, GetterNeedsSixteenBytesAndReportsTheLength) {
    const OpenCache cache;
    LogCapture log;
    for (const AddressKind &kind : KINDS) {
        char out[16] = "before";
        uint32_t len = 15;
        EXPECT_FALSE(kind.get("zelan256", out, &len));
        const std::string refused = log.Take();
        EXPECT_EQ(0u, refused.find(kind.getName + " - Invalid argument - vnet: 0x")) << refused;
        EXPECT_NE(std::string::npos, refused.find(kind.argumentWord + ": 0x")) << refused;
        EXPECT_TRUE(EndsWith(refused, ",15\n")) << refused;
        len = 16;
        EXPECT_FALSE(kind.get("zelan256", out, &len));
        EXPECT_EQ(kind.getName + " - Invalid vnet name: zelan256\n", log.Take());
        EXPECT_FALSE(kind.get("zelan8", out, &len));
        EXPECT_EQ(kind.getName + " - " + kind.missingLine, log.Take());
        EXPECT_FALSE(kind.get("zelan8", nullptr, &len));
        EXPECT_FALSE(kind.get("zelan8", out, nullptr));
        EXPECT_STREQ("before", out);
        log.Take();
        ASSERT_TRUE(HBLSetVnetCfg(8, kind.field, "10.0.0.1"));
        EXPECT_TRUE(kind.get("zelan8", out, &len));
        EXPECT_STREQ("10.0.0.1", out);
        EXPECT_EQ(9u, len);
    }
}

TEST(AddressSettings, AdapterAddressIsComputedOnDemand) {
    const OpenCache cache("answer VNET_8_HOSTONLY_SUBNET 192.168.40.0\n");
    char out[16];
    uint32_t len = sizeof out;
    EXPECT_FALSE(HBL_GetVnetAdapterAddr("zelan8", out, &len, false));
    EXPECT_TRUE(HBL_GetVnetAdapterAddr("zelan8", out, &len, true));
    EXPECT_STREQ("192.168.40.1", out);
}

TEST(AddressSettings, UnloadedLibraryRefusesUnderTheFunctionsName) {
    LogCapture log;
    for (const AddressKind &kind : KINDS) {
        EXPECT_FALSE(kind.set("zelan8", nullptr));
        EXPECT_EQ(kind.setName + " - Harbrel Un-Initialized. Aborting API Function: " + kind.setName + "\n",
                  log.Take());
    }
}

}  // namespace
