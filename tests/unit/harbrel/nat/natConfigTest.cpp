// The generated nat.conf: its bytes, its backup, and its removal.
#include <gtest/gtest.h>

#include <string>

#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/dhcp/dhcp.h"
#include "lib/harbrel/nat/nat.h"
#include "tests/support/fakePrograms.h"

namespace {

constexpr char UP_TO_TIMEOUT[] = R"(# Linux NAT configuration file
[host]
# NAT gateway address
ip = 192.168.10.2
netmask = 255.255.255.0
# ZeLan device if not specified on command line
device = /dev/zelan8
# Allow PORT/EPRT FTP commands (they need incoming TCP stream ...)
activeFTP = 1
# Allows the source to have any OUI.  Turn this one if you change the OUI
# in the MAC address of your virtual machines.
allowAnyOUI = 1
[udp]
# Timeout in seconds, 0 = no timeout, default = 60; real value might
# be up to 100% longer
)";

class NatConfig : public testing::Test {
  protected:
    NatConfig() {
        Answer("NAT", "yes");
        Answer("HOSTONLY_SUBNET", "192.168.10.0");
        Answer("HOSTONLY_NETMASK", "255.255.255.0");
    }
    void Answer(const std::string &field, const char *value) { cache_.Answer("VNET_8_" + field, value); }
    std::string Path(const std::string &name = "nat.conf") { return cache_.Path("conf/zelan8/nat/" + name); }

    FakePrograms cache_;
};

TEST_F(NatConfig, FileIsWrittenAnewWithItsPredecessorInTheBackup) {
    ASSERT_TRUE(HBLNATUpdateFromConfig(8));
    const std::string fresh = std::string(UP_TO_TIMEOUT) + "timeout = 60\n[incomingudp]\n\n[incomingtcp]\n\n";
    EXPECT_EQ(fresh, ReadFileText(Path()));
    EXPECT_FALSE(std::filesystem::exists(Path("nat.conf.bak")));
    ASSERT_TRUE(HBLNATUpdateFromConfig(8));
    EXPECT_EQ(fresh, ReadFileText(Path()));
    EXPECT_EQ(fresh, ReadFileText(Path("nat.conf.bak")));

    WriteFileText(Path(), "mine");
    Answer("NAT_PARAM_UDP_TIMEOUT", "0");
    const char *guest = "192.168.10.50";
    ASSERT_TRUE(HBLNetCfgAddNATPortFwd(nullptr, 8, true, 8888, guest, 80, "web", false));
    ASSERT_TRUE(HBLNetCfgAddNATPortFwd(nullptr, 8, false, 6000, guest, 6001, nullptr, false));
    ASSERT_TRUE(HBLNATUpdateFromConfig(8));
    EXPECT_EQ(std::string(UP_TO_TIMEOUT) +
                  "timeout = 0\n[incomingudp]\n6000 = 192.168.10.50:6001\n\n"
                  "[incomingtcp]\n8888 = 192.168.10.50:80\n\n",
              ReadFileText(Path()));
    Answer("NAT_PARAM_UDP_TIMEOUT", "1000000000");
    EXPECT_FALSE(HBLNATUpdateFromConfig(8)) << "there is room for nine digits";
    EXPECT_EQ("mine", ReadFileText(Path("nat.conf.bak")));
}

TEST_F(NatConfig, SecondServiceToGoTakesTheNetworksFolder) {
    for (const auto &[first, second] : {std::pair{&HBLNATUpdateFromConfig, &HBLDHCPUpdateFromConfig},
                                        {&HBLDHCPUpdateFromConfig, &HBLNATUpdateFromConfig}}) {
        Answer("NAT", "yes");
        Answer("DHCP", "yes");
        ASSERT_TRUE(first(8) && second(8) && second(8));
        Answer("NAT", "no");
        Answer("DHCP", "no");
        EXPECT_TRUE(first(8));
        EXPECT_TRUE(std::filesystem::exists(cache_.Path("conf/zelan8")));
        EXPECT_TRUE(second(8));
        EXPECT_FALSE(std::filesystem::exists(cache_.Path("conf/zelan8")));
        EXPECT_TRUE(first(8) && second(8)) << "nothing is left to remove";
    }
}

}  // namespace
