// The exported functions of DHCP and NAT, and the generated files, full disks and strange things in the way.
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <functional>

#include "lib/harbrel/database/database.h"
#include "tests/host/loadedLibrary.h"
#include "tests/support/netns.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;

constexpr char VNET_DIR[] = "/etc/orvane/zelan8";
const std::string DHCP_CONF = std::string(VNET_DIR) + "/dhcpd/dhcpd.conf";
const std::string NAT_CONF = std::string(VNET_DIR) + "/nat/nat.conf";

class DhcpNat : public LibraryTest {
  protected:
    DhcpNat() {
        WriteDatabase(
            "answer HBL_LOGLEVEL 1\nanswer HBL_DEFAULT_BRIDGE_VNET 0\nanswer VNET_8_DHCP yes\n"
            "answer VNET_8_NAT yes\nanswer VNET_8_HOSTONLY_SUBNET 192.168.10.0\n"
            "answer VNET_8_HOSTONLY_NETMASK 255.255.255.0\n");
        WriteFileText("/etc/orvane/config", "bindir = \"/tmp/bin\"\n");
        std::filesystem::create_directory("/tmp/bin");
        WriteFileText("/tmp/bin/orvane-ping", "#!/bin/sh\nexit 1\n");
        chmod("/tmp/bin/orvane-ping", 0755);
        EXPECT_TRUE(HBL_Load());
        HBL_SetLogLevel(LOG_ERR | LOG_OK);
        TakeLog();
    }
    ~DhcpNat() override { umount(VNET_DIR); }

    static std::string TakeLog() {
        const std::string text = Log();
        std::filesystem::resize_file("/var/log/harbrel", 0);
        return text;
    }
    static bool UpdateDhcp() {
        if (!HBL_UpdateDHCPFromConfig("zelan8")) {
            return false;
        }
        const CommandResult judged = RunCommand({"/usr/sbin/dhcpd", "-t", "-cf", DHCP_CONF});
        EXPECT_TRUE(judged.Succeeded()) << judged << ReadFileText(DHCP_CONF);
        return true;
    }
    // Gives the network's folder a file system of so many pages.
    static void MountVnetDir(size_t pages) {
        mkdir(VNET_DIR, 0755);
        Must("mount -t tmpfs -o size=" + std::to_string(pages * static_cast<size_t>(getpagesize())) +
             " tmpfs " + VNET_DIR);
    }
    static void ExpectLockIsFree() {
        EXPECT_TRUE(HBLNetCfgLockConfig(nullptr));
        EXPECT_TRUE(HBLNetCfgUnlockConfig(nullptr));
    }
};

TEST_F(DhcpNat, CallsEndWithTheirLineAndFreeTheLock) {
    char text[128] = "";
    uint32_t length = 2, room = sizeof text, offset = 0;
    uint16_t port = 0;
    const struct {
        bool done;
        std::function<bool()> call;
        const char *lastLine;
    } cases[] = {
        {true, [] { return HBL_SetDHCPParam("ZELAN8", 13354, "0x708s", 5); },
         "succeeded, vnet: ZELAN8, paramID: 13354, param: 0x708\n"},
        {false, [] { return HBL_SetDHCPParam("zelan8", 13356, nullptr, 0); },
         "HBL_SetDHCPParam - Deleting DHCP parameter: 13356 failed for vnet: zelan8\n"},
        {false, [&] { return HBL_GetDHCPParam("zelan8", 13356, true, text, &room); },
         "parameter: Invalid DHCP Parameter not found in configuration for vnet: 8\n"
         "HBLDHCPGetParameterDefault - Invalid DHCP Param Name 9555\n"
         "HBLDHCPGetParameter - Failure in getting default value of parameter\n"
         "HBL_GetDHCPParam - Get DHCP Parameter failed on vnet: zelan8, paramID: 13356\n"},
        {false, [&] { return HBL_GetDHCPParam("zelan8", 13354, true, text, nullptr); }, ", pL: (nil),0\n"},
        {true, [] { return HBL_SetNATParam("zelan8", 9030, "0x8000", 6); },
         "HBL_SetNATParam - Setting value for NAT parameter: 9030, 0x8000 succeeded for vnet: zelan8\n"},
        {false, [] { return HBL_SetDHCPIPToMAC("zelan8", "10.0.0", "02:00:00:00:00:01"); },
         "IP address is not valid: 10.0.0\n"},
        {false, [] { return HBL_SetNATPortForward("zelan8", true, 80, "10.0.0.5", 0, nullptr, 0); },
         "Invalid VM IP: 10.0.0.5 or port: 0\n"},
        {false, [&] { return HBL_SetNATPortForward("zelan8", true, 80, "10.0.0.5", 80, text, 128); },
         "Description is too long, allowed is: 128 bytes\n"},
        {false, [] { return HBL_SetDHCPParam("zelan8", 0, "1", 1); }, " - Unsupported DHCP Parameter\n"},
        {false, [] { return HBL_SetNATParam("zelan8", 0, "1", 1); }, " - Unsupported NAT parameter: 0\n"},
        {false,
         [&] {
             return HBL_EnumNATPortForward("zelan8", true, nullptr, nullptr, text, &room, &port, nullptr,
                                           nullptr);
         },
         ", description: (nil), descLen: (nil)\n"},
        {false,
         [&] {
             return HBL_EnumNATPortForward("zelan8", true, &offset, nullptr, text, &room, nullptr, nullptr,
                                           nullptr);
         },
         ", vmPort: (nil), description: (nil), descLen: (nil)\n"},
        {true, [] { return HBL_SetNATPortForward("zelan8", true, 80, "10.0.0.5", 8080, "web site", 3); },
         "tcp: 1, hostPort: 80, vm IP: 10.0.0.5, vm port: 8080, description: web\n"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.lastLine);
        EXPECT_EQ(row.done, row.call());
        EXPECT_THAT(TakeLog(), EndsWith(row.lastLine));
        EXPECT_EQ(2U, length);
        ExpectLockIsFree();
        TakeLog();
    }
}

TEST_F(DhcpNat, MappingIsFoundWhateverTheCaseOfItsAddress) {
    ASSERT_TRUE(HBL_SetDHCPIPToMAC("zelan8", "192.168.10.50", "02:AA:00:00:00:01"));
    ASSERT_TRUE(HBL_SetDHCPIPToMAC("zelan8", "192.168.10.51", "02:aa:00:00:00:01"));
    char ip[16], mac[18];
    uint32_t ipLength = sizeof ip, macLength = sizeof mac, offset = 0;
    ASSERT_TRUE(HBL_EnumDHCPIPToMAC("zelan8", &offset, ip, &ipLength, mac, &macLength));
    EXPECT_STREQ("192.168.10.51 02:AA:00:00:00:01", (std::string(ip) + " " + mac).c_str());
    EXPECT_EQ(std::tuple(14U, 18U, 1U), std::tuple(ipLength, macLength, offset));
    ipLength = sizeof ip;
    EXPECT_TRUE(HBL_GetDHCPIPToMAC("zelan8", ip, &ipLength, "02:aA:0:0:0:1"));
    EXPECT_EQ(14U, ipLength);
    EXPECT_TRUE(UpdateDhcp());
}

TEST_F(DhcpNat, ForwardsOfAProtocolAreReplacedAndReadWithTheirDescriptions) {
    const std::string longest(127, 'd');
    ASSERT_TRUE(HBL_SetNATPortForward("zelan8", true, 80, "10.0.0.5", 80, "old", 3));
    ASSERT_TRUE(HBL_SetNATPortForward("zelan8", true, 80, "100.100.100.100", 81, longest.c_str(), 127));
    ASSERT_TRUE(HBL_SetNATPortForward("zelan8", false, 80, "10.0.0.7", 82, "", 0));
    char ip[16], text[128];
    uint32_t ipLength = sizeof ip, length = 127, offset = 0;
    uint16_t hostPort = 0, port = 0;
    TakeLog();
    EXPECT_FALSE(HBL_GetNATPortForward("zelan8", true, 80, ip, &ipLength, &port, text, &length));
    EXPECT_FALSE(
        HBL_EnumNATPortForward("zelan8", true, &offset, &hostPort, ip, &ipLength, &port, text, &length));
    EXPECT_EQ(
        "HBL_GetNATPortForward - Getting NAT Port Forward failed on vnet: zelan8\n"
        "HBLNetCfgEnumNATPortFwd - Insufficient buffer length for description\n"
        "HBL_EnumNATPortForward - No ports to enumerate for vnet: zelan8\n",
        TakeLog());
    EXPECT_EQ(std::tuple(127U, 0U), std::tuple(length, offset));
    length = sizeof text;
    ASSERT_TRUE(
        HBL_EnumNATPortForward("zelan8", true, &offset, &hostPort, ip, &ipLength, &port, text, &length));
    EXPECT_EQ("100.100.100.100 " + longest, std::string(ip) + " " + text);
    EXPECT_EQ(std::tuple(80, 81, 16U, 128U, 1U), std::tuple(hostPort, port, ipLength, length, offset));
    EXPECT_FALSE(
        HBL_EnumNATPortForward("zelan8", true, &offset, &hostPort, ip, &ipLength, &port, text, &length));
    EXPECT_TRUE(HBL_GetNATPortForward("zelan8", false, 80, ip, &ipLength, &port, text, &length));
    EXPECT_EQ(std::tuple(82, 0U), std::tuple(port, length));
}

TEST_F(DhcpNat, FilesAreLeftAloneUnlessTheirDaemonIsKnownToBeStopped) {
    const struct {
        const char *pidFile;
        bool (*update)(const char *vnet);
        bool (*use)(const char *vnet, bool use, bool cleanup);
        const char *line;
        const char *service;
    } cases[] = {
        {"/var/run/zelan-dhcpd-zelan8.pid", HBL_UpdateDHCPFromConfig, HBL_SetVnetUseDHCP,
         "DHCP service is not in stopped state on this vnet, Cannot update config files\n", "DHCP"},
        {"/var/run/zelan-natd-8.pid", HBL_UpdateNATFromConfig, HBL_SetVnetUseNAT,
         "NAT service is not in stopped state on this vnet,Cannot update config information\n", "NAT"},
    };
    for (const auto &row : cases) {
        for (const std::string &pid : {std::to_string(getpid()), std::string("no number")}) {
            WriteFileText(row.pidFile, pid + "\n");
            EXPECT_FALSE(row.update("zelan8"));
            EXPECT_THAT(TakeLog(), EndsWith(row.line));
            EXPECT_FALSE(std::filesystem::exists(VNET_DIR));
        }
        std::filesystem::remove(row.pidFile);
        for (const std::string action : {"Writing ", "Removing "}) {
            EXPECT_TRUE(row.update("zelan8"));
            EXPECT_THAT(TakeLog(), EndsWith(" - " + action + row.service +
                                            " configuration file succeeded for vnet: zelan8\n"));
            EXPECT_EQ(action == "Writing ", std::filesystem::exists(VNET_DIR));
            EXPECT_TRUE(row.use("zelan8", false, false));
        }
    }
}

TEST_F(DhcpNat, FullDiskInARewriteOfDhcpdConfLeavesTheOldOneWhole) {
    static constexpr struct {
        const char *what;
        size_t diskPages, oldPages;  // the old file is filled up to so many by a tail; 0: it has none
        int mappings;                // added before the rewrite
        const char *log;
        bool touched;
    } CASES[] = {
        {"backup", 1, 0, 0, "dhcpd.conf.bak failed, error: No space left on device\n", false},
        {"block", 2, 0, 60, "DHCP MAC/IP mapping, error: No space left on device\n", true},
        {"large tail", 6, 3, 35, "fwrite: failure while copying file, error: No space left on device\n",
         true},
    };
    for (const auto &row : CASES) {
        SCOPED_TRACE(row.what);
        MountVnetDir(row.diskPages);
        ASSERT_TRUE(UpdateDhcp());
        std::string before = ReadFileText(DHCP_CONF);
        before.resize(std::max(before.size(), row.oldPages * static_cast<size_t>(getpagesize())), '#');
        WriteFileText(DHCP_CONF, before);
        for (int i = 10; i < 10 + row.mappings; i++) {
            EXPECT_TRUE(HBL_SetDHCPIPToMAC("zelan8", ("192.168.10." + std::to_string(i)).c_str(),
                                           ("02:00:00:00:00:" + std::to_string(i)).c_str()));
        }
        TakeLog();
        EXPECT_FALSE(UpdateDhcp());
        const std::string log = TakeLog();
        EXPECT_THAT(log, HasSubstr(row.log));
        EXPECT_THAT(log, EndsWith("Writing DHCP configuration file failed for vnet: zelan8\n"));
        EXPECT_EQ(before, ReadFileText(row.touched ? DHCP_CONF + ".bak" : DHCP_CONF));
        ExpectLockIsFree();
        // What is left of the file is not taken for what the user wrote.
        const std::string left = ReadFileText(DHCP_CONF);
        Must(std::string("mount -o remount,size=1m ") + VNET_DIR);
        EXPECT_TRUE(UpdateDhcp());
        EXPECT_EQ(row.touched,
                  TakeLog().find("Could not locate zelan DHCP config block") != std::string::npos);
        EXPECT_EQ(left, ReadFileText(DHCP_CONF + ".bak"));
        umount(VNET_DIR);
        EXPECT_TRUE(HBL_SetVnetUseDHCP("zelan8", true, true));
    }
}

TEST_F(DhcpNat, FullDiskTakesNewFilesAwayAgain) {
    MountVnetDir(1);
    WriteFileText(std::string(VNET_DIR) + "/filler", std::string(getpagesize(), '#'));
    EXPECT_FALSE(UpdateDhcp());
    EXPECT_THAT(TakeLog(), HasSubstr("readonly end marker, error: No space left on device\n"));
    EXPECT_FALSE(HBL_UpdateNATFromConfig("zelan8"));
    EXPECT_THAT(TakeLog(), HasSubstr("NAT config file, error: No space left on device\n"));
    EXPECT_EQ("dhcpd\nfiller\n", RunCommand({"ls", VNET_DIR}).output);
    EXPECT_TRUE(std::filesystem::is_empty(std::string(VNET_DIR) + "/dhcpd"));
}

TEST_F(DhcpNat, WhatIsNoRegularFileIsRefusedWithoutWaiting) {
    // Done in the network's folder, and what the log says of it.
    const std::pair<const char *, const char *> cases[] = {
        {"rm dhcpd/dhcpd.conf; mkfifo dhcpd/dhcpd.conf",
         "DHCPWriteDHCPCfg - Cannot create DHCP Config File, "},
        {"mkfifo dhcpd/dhcpd.conf.bak", "DHCPWriteDHCPCfg - Failed to backup DHCP file. Aborting\n"},
        {"rm nat/nat.conf; mkfifo nat/nat.conf",
         "NATUpdateFromConfig - fopen: failed to open NAT config file, "},
        {"mkfifo nat/nat.conf.bak", "NATUpdateFromConfig - Failed to backup NAT file\n"},
        {"rm dhcpd/dhcpd.conf; mkdir -p dhcpd/dhcpd.conf/mine",
         "DHCPWriteDHCPCfg - Cannot create DHCP config file\n"},
    };
    for (const auto &[what, line] : cases) {
        std::filesystem::remove_all(VNET_DIR);
        ASSERT_TRUE(UpdateDhcp() && HBL_UpdateNATFromConfig("zelan8"));
        Must(std::string("cd /etc/orvane/zelan8; ") + what);
        EXPECT_FALSE(UpdateDhcp() && HBL_UpdateNATFromConfig("zelan8"));
        EXPECT_THAT(TakeLog(), HasSubstr(line)) << what;
    }
    EXPECT_TRUE(std::filesystem::exists(DHCP_CONF + "/mine"));
}

}  // namespace
