// Threads that only read, beside a main thread that changes: what they find is never torn, missing or freed.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <atomic>
#include <cstring>
#include <functional>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "lib/harbrel/networks/subnetTables.h"
#include "tests/host/loadedLibrary.h"
#include "tests/support/bridgeCalls.h"
#include "tests/support/otherProcess.h"

namespace {

constexpr int READERS = 3;
constexpr const char *NET = "zelan8";
constexpr const char *MAC = "02:00:00:01:02:03";

// The constant records are there at any moment; the others have one of the values that the changes give them.
constexpr const char *RECORDS =
    "answer NOTE even\nanswer VNET_8_HOSTONLY_SUBNET 192.168.8.0\nanswer VNET_8_HOSTONLY_NETMASK "
    "255.255.255.0\nanswer VNET_8_DHCP yes\nanswer VNET_9_HOSTONLY_SUBNET 192.168.9.0\n"
    "add_nat_portfwd 8 tcp 80 192.168.8.9 8080 constant\nadd_nat_portfwd 8 tcp 81 192.168.8.9 81 second\n"
    "add_dhcp_mac_to_ip 8 02:00:00:01:02:03 192.168.8.20\nadd_dhcp_mac_to_ip 8 02:00:00:01:02:04 "
    "192.168.8.21\nadd_bridge_mapping eth7 3\n";

class Threads : public LibraryTest {
  protected:
    ~Threads() override { Stop(); }

    static void LoadWithProgram(const std::string &name, const std::string &script) {
        WriteFileText("/etc/orvane/config", "bindir = \"/etc/orvane\"\n");
        WriteFileText("/etc/orvane/" + name, "#!/bin/sh\n" + script + "\n");
        ASSERT_EQ(0, chmod(("/etc/orvane/" + name).c_str(), 0755));
        LoadWith(RECORDS);
        HBL_SetLogLevel(0);
    }
    void StartReaders() {
        for (int i = 0; i < READERS; ++i) {
            readers_.emplace_back([this, i] {
                while (!stop_) {
                    ReadEverything();
                    ++passes_[i];
                }
            });
        }
    }
    // Every reader has gone round once, from beginning to end, beside what happens in between.
    void AwaitAPass() {
        for (std::atomic<unsigned> &passes : passes_) {
            const unsigned before = passes;
            while (passes < before + 2) {
                std::this_thread::yield();
            }
        }
    }
    std::string Stop() {
        stop_ = true;
        for (std::thread &reader : readers_) {
            reader.join();
        }
        readers_.clear();
        return failures_;
    }

  private:
    void Expect(bool good, const char *what) {
        const std::lock_guard hold(guard_);
        if (!good && failures_.find(what) == std::string::npos) {
            failures_.append(what).append("\n");
        }
    }
    void ReadAnswersAndAddresses() {
        const char *value = "even";
        if (HBL_VnetCfgGetAnswer("NOTE", &value)) {
            std::this_thread::yield();  // the answer may well change now; the text stays
        }
        Expect(strcmp(value, "even") == 0 || strcmp(value, "odd") == 0, "answer");
        char text[16] = "";
        uint32_t length = sizeof text;
        Expect(HBL_GetVnetSubnetAddr(NET, text, &length) &&
                   (strcmp(text, "192.168.8.0") == 0 || strcmp(text, "172.16.8.0") == 0),
               "subnet");
        length = sizeof text;
        Expect(HBL_GetVnetSubnetMask(NET, text, &length), "mask");
        length = sizeof text;
        Expect(HBL_GetVnetAdapterAddr(NET, text, &length, true), "adapter");
    }
    void ReadServices() {
        bool installed = false;
        bool enabled = false;
        Expect(HBL_GetVnetAdapterStatus(NET, &installed, &enabled), "adapter status");
        Expect(HBL_GetServiceStatus(NET, HBL_SERVICE_DHCP) == HBL_SERVICE_STATUS_STOPPED, "status");
        HBL_VnetFeatures features = {};
        features.version = 1;
        features.net = NetworkOf(8);
        Expect(HBL_GetVnetFeatures(&features) && features.subnet == 1, "features");
        memset(&features.config, HBL_FEATURE_ANY, sizeof features.config);
        memset(&features.runtime, HBL_FEATURE_ANY, sizeof features.runtime);
        features.subnet = HBL_FEATURE_YES;
        features.net.vnet = 8;
        Expect(HBL_FindVnetWithFeatures(&features) && features.net.vnet == 8, "search");
    }
    void ReadBridging() {
        HBL_HostAdapterList *list = nullptr;
        Expect(HBL_GetHostAdapterList(1, &list), "host adapters");
        HBL_FreeHostAdapterList(list);
        HBL_NetworkID bridge = NetworkOf(77);
        Expect(HBL_GetBridgeDefaultNetwork(&bridge) && (bridge.vnet == 0 || bridge.vnet == HBL_VNET_NONE),
               "default network");
    }
    void ReadDHCP() {
        char text[18] = "";
        char mac[18] = "";
        uint32_t length = 16;
        Expect(HBL_GetDHCPIPToMAC(NET, text, &length, MAC) && strcmp(text, "192.168.8.20") == 0, "mapping");
        length = 16;
        Expect(HBL_GetDHCPParam(NET, 13354, true, text, &length) &&
                   (strcmp(text, "600") == 0 || strcmp(text, "1800") == 0),
               "DHCP parameter");
        Expect(!HBL_GetVnetUseDHCP("zelan3"), "use of DHCP");
        uint32_t macLength = sizeof mac;
        length = 16;
        for (uint32_t index = 0; HBL_EnumDHCPIPToMAC(NET, &index, text, &length, mac, &macLength);) {
            Expect(strncmp(text, "192.168.8.2", 11) == 0 && strncmp(mac, MAC, 16) == 0, "mappings");
            macLength = sizeof mac;
            length = 16;
        }
    }
    void ReadNAT() {
        char text[16] = "";
        char described[128] = "";
        uint32_t length = sizeof text;
        uint32_t room = sizeof described;
        uint16_t port = 0;
        Expect(HBL_GetNATPortForward(NET, true, 80, text, &length, &port, described, &room) && port == 8080 &&
                   strcmp(described, "constant") == 0,
               "forward");
        length = sizeof text;
        Expect(HBL_GetNATParam(NET, 9031, true, text, &length), "NAT parameter");
        Expect(!HBL_GetVnetUseNAT("zelan3"), "use of NAT");
        length = sizeof text;
        room = sizeof described;
        uint16_t hostPort = 0;
        for (uint32_t index = 0;
             HBL_EnumNATPortForward(NET, true, &index, &hostPort, text, &length, &port, described, &room);) {
            Expect(hostPort >= 80 && hostPort <= 82 && strcmp(text, "192.168.8.9") == 0, "forwards");
            length = sizeof text;
            room = sizeof described;
        }
    }
    void ReadEverything() {
        ReadAnswersAndAddresses();
        ReadServices();
        ReadBridging();
        ReadDHCP();
        ReadNAT();
        Expect(HBL_CheckNetworkingDB() && HBL_NetworkingDBExists() && HBL_GetNumVnets() == 256 &&
                   HBL_GetLogLevel() <= 127,
               "database");
    }

    std::vector<std::thread> readers_;
    std::atomic<unsigned> passes_[READERS] = {};
    std::atomic<bool> stop_ = false;
    std::mutex guard_;
    std::string failures_;
};

// Each changes something when it is called with true and puts it back with false.
struct ChangingCall {
    const char *name;
    bool (*call)(bool odd);
    bool succeeds = true;
};

constexpr ChangingCall CHANGING_CALLS[] = {
    {"answer", [](bool odd) { return HBL_VnetCfgAddAnswer("NOTE", odd ? "odd" : "even"); }},
    {"no answer",
     [](bool odd) { return odd ? HBL_VnetCfgRemoveAnswer("NOTE") : HBL_VnetCfgAddAnswer("NOTE", "even"); }},
    {"subnet", [](bool odd) { return HBL_SetVnetSubnetAddr(NET, odd ? "172.16.8.0" : "192.168.8.0"); }},
    {"mask", [](bool odd) { return HBL_SetVnetSubnetMask(NET, odd ? "255.255.0.0" : "255.255.255.0"); }},
    {"adapter address", [](bool odd) { return HBL_SetVnetAdapterAddr(NET, odd ? "192.168.8.1" : nullptr); }},
    {"use DHCP", [](bool odd) { return HBL_SetVnetUseDHCP(NET, !odd, false); }},
    {"use NAT", [](bool odd) { return HBL_SetVnetUseNAT(NET, odd, false); }},
    {"use adapter", [](bool odd) { return HBL_SetVnetUseAdapter(NET, odd, false); }},
    {"assign", [](bool) { return HBL_AssignSubnetAddressToVnet(NET, false); }},
    {"DHCP parameter", [](bool odd) { return HBL_SetDHCPParam(NET, 13354, odd ? "600" : nullptr, 3); }},
    {"mapping",
     [](bool odd) { return HBL_SetDHCPIPToMAC(NET, odd ? "192.168.8.22" : nullptr, "02:00:00:01:02:05"); }},
    {"NAT parameter", [](bool odd) { return HBL_SetNATParam(NET, 9031, odd ? "0" : nullptr, 1); }},
    {"forward",
     [](bool odd) {
         return HBL_SetNATPortForward(NET, true, 82, odd ? "192.168.8.9" : nullptr, 82, "third", 5);
     }},
    {"DHCP file", [](bool) { return HBL_UpdateDHCPFromConfig(NET); }},
    {"NAT file", [](bool) { return HBL_UpdateNATFromConfig(NET); }},
    {"start", [](bool) { return HBL_StartService(NET, HBL_SERVICE_DHCP); }, false},
    {"stop", [](bool) { return HBL_StopService(NET, HBL_SERVICE_DHCP); }},
    {"disable", [](bool) { return HBL_DisableNetworkAdapter(NET); }},
    {"device", [](bool odd) { return odd ? HBL_CreateZelanDevice(NET) : HBL_DeleteZelanDevice(NET); }},
    {"default bridge", [](bool odd) { return SetDefaultBridge(odd ? HBL_VNET_NONE : 0); }},
    {"move", [](bool odd) { return MoveAdapter("eth9", odd ? 5 : HBL_VNET_NONE); }},
    {"stored level", [](bool) { return HBL_SetDefaultLogLevel(25); }},
    {"level", [](bool odd) { return HBL_SetLogLevel(odd ? 127 : 0); }},
    {"export", [](bool) { return HBL_ExportDatabaseToFile("/tmp/copy"); }},
    {"import", [](bool) { return HBL_ImportDatabaseFromFile("/tmp/copy"); }},
    {"removal", [](bool) { return HBL_DeleteVnetFromDatabase("zelan9"); }},
    {"nested load",
     [](bool) {
         const bool loaded = HBL_Load();
         HBL_Unload();
         return loaded;
     }},
};

TEST_F(Threads, ReadersBesideEachOtherAndEachChangingCallFindWholeRecords) {
    LoadWithProgram("zelan-dhcpd", "exit 1");
    StartReaders();
    AwaitAPass();
    for (const ChangingCall &change : CHANGING_CALLS) {
        SCOPED_TRACE(change.name);
        for (int round = 0; round < 6; ++round) {
            EXPECT_EQ(change.succeeds, change.call(round % 2 == 0));
            AwaitAPass();
        }
    }
    EXPECT_EQ("", Stop());
}

TEST_F(Threads, ReadersBesideAForeignRewriteFindWholeRecords) {
    WriteDatabase(RECORDS);
    OtherProcess other({[] {
        const bool loaded = HBL_Load();
        const bool changed = HBL_SetVnetSubnetMask(NET, "255.255.0.0");
        HBL_Unload();
        return loaded && changed;
    }});
    ASSERT_TRUE(HBL_Load());
    HBL_SetLogLevel(0);
    StartReaders();
    for (int round = 0; round < 30; ++round) {
        EXPECT_TRUE(other.Do(0));
        EXPECT_TRUE(HBL_SetVnetSubnetAddr(NET, round % 2 == 0 ? "172.16.8.0" : "192.168.8.0"));
        AwaitAPass();
    }
    EXPECT_EQ("", Stop());
}

TEST_F(Threads, SubnetIsTakenAwayBesideSearchesForUnusedOnes) {
    LoadWithProgram("orvane-ping", "exit 2");
    HBLSubnetTables() = {};
    std::array<char[16], READERS> found = {};
    {
        std::vector<std::jthread> searches;
        for (char(&subnet)[16] : found) {
            searches.emplace_back([&subnet] {
                char mask[16];
                EXPECT_TRUE(HBL_GetUnusedSubnet(subnet, sizeof subnet, mask, sizeof mask));
            });
        }
        EXPECT_TRUE(HBL_SetVnetSubnetAddr(NET, nullptr));
    }
    EXPECT_EQ(READERS, std::set<std::string>(found.begin(), found.end()).size());
    EXPECT_EQ(512 - 2, HBLSubnetTables().candidateCount);  // all but the two that were configured
}

}  // namespace
