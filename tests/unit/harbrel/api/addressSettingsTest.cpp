#include <gmock/gmock.h>

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
    std::string name;  // behind HBL_Set
    Setter set;
    Getter get;
    std::string settingWords;  // behind "Successfully set" and "Successfully removed"
    const char *bad;
    std::string badLine;  // the last line of the refusal

    std::string SetLine(const std::string &text) const { return "HBL_Set" + name + " - " + text + "\n"; }
};

const AddressKind KINDS[] = {
    {VNET_FIELD_SUBNET, "VnetSubnetAddr", HBL_SetVnetSubnetAddr, HBL_GetVnetSubnetAddr,
     " set the subnet address", "10.0.0", "Subnet address is not valid: 10.0.0"},
    {VNET_FIELD_NETMASK, "VnetSubnetMask", HBL_SetVnetSubnetMask, HBL_GetVnetSubnetMask, " the mask",
     "255.255.255.252", "Specified mask is not valid"},
    {VNET_FIELD_ADAPTER_ADDR, "VnetAdapterAddr", HBL_SetVnetAdapterAddr,
     [](const char *vnet, char *out, uint32_t *len) { return HBL_GetVnetAdapterAddr(vnet, out, len, false); },
     " adapter address", "10.0.0.256", "Invalid adapter IP address: 10.0.0.256"},
};

TEST(AddressSettings, SettersRefuseStoreAndWithNullRemove) {
    const OpenCache cache;
    LogCapture log(LOG_ERR | LOG_OK);
    for (const AddressKind &kind : KINDS) {
        EXPECT_FALSE(kind.set("zelan8", kind.bad));
        EXPECT_THAT(log.Take(), testing::EndsWith(kind.SetLine(kind.badLine)));
        EXPECT_EQ(std::nullopt, HBLGetVnetCfg(8, kind.field));
        EXPECT_TRUE(kind.set("ZELAN8", "255.255.0.0"));
        EXPECT_EQ(kind.SetLine("Successfully set" + kind.settingWords + " for vnet: ZELAN8"), log.Take());
        char out[16] = "before";
        uint32_t len = 15;
        EXPECT_FALSE(kind.get("zelan8", out, &len));
        EXPECT_STREQ("before", out);
        len = 16;
        EXPECT_TRUE(kind.get("zelan8", out, &len));
        EXPECT_EQ(std::tuple("255.255.0.0", 12u), std::tuple(std::string(out), len));
        log.Take();
        EXPECT_TRUE(kind.set("ZELAN8", nullptr));
        EXPECT_EQ(kind.SetLine("Successfully removed" + kind.settingWords + " for vnet: ZELAN8"), log.Take());
        EXPECT_EQ(std::nullopt, HBLGetVnetCfg(8, kind.field));
    }
}

}  // namespace
