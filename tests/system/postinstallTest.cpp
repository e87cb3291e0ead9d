// --postinstall and --migrate-network-settings: their words, what they leave, and that no daemon starts.
#include <gmock/gmock.h>

#include <cstring>

#include "tests/support/dhcpServers.h"
#include "tests/support/tool.h"

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

constexpr char CONFIGURING[] =
    "Configuring Bridged network zelan0\n"
    "Configuring hostonly network zelan1, probing for unused subnet ...\n"
    "Configuring NAT network zelan8, probing for unused subnet ...\n"
    "Configured default networks - Bridged, Hostonly, NAT\n";
constexpr char NOTHING_STOPPED[] = "Stopped all configured services on all networks\n";

class Postinstall : public ToolTest {
  protected:
    static CommandResult Upgrade() { return Run({"--postinstall", "tool,1.0,2.0"}); }

    // The database with the values that differ from run to run left out.
    static std::string Database() {
        return RunShell(std::string("sed -E 's/(SUBNET|HASH) .*/\\1/' ") + DATABASE).output;
    }
    static std::string DefaultDatabase() {
        return "VERSION=1,0\nanswer VNET_1_DHCP yes\nanswer VNET_1_DHCP_CFG_HASH\n"
               "answer VNET_1_HOSTONLY_NETMASK 255.255.255.0\nanswer VNET_1_HOSTONLY_SUBNET\n"
               "answer VNET_1_VIRTUAL_ADAPTER yes\nanswer VNET_8_DHCP yes\nanswer VNET_8_DHCP_CFG_HASH\n"
               "answer VNET_8_HOSTONLY_NETMASK 255.255.255.0\nanswer VNET_8_HOSTONLY_SUBNET\n"
               "answer VNET_8_NAT yes\nanswer VNET_8_VIRTUAL_ADAPTER yes\n";
    }
    // The generated files, and what an import or a creation has moved away.
    static std::string Files() {
        return RunShell(
                   "cd /etc/orvane && find . -name '*.conf' -o -name 'networking*' | sort | tr '\\n' ' '")
            .output;
    }
    static constexpr char DEFAULT_FILES[] =
        "./networking ./zelan1/dhcpd/dhcpd.conf ./zelan8/dhcpd/dhcpd.conf ./zelan8/nat/nat.conf ";
};

using ServedPostinstall = WithDhcpServer<Postinstall>;
INSTANTIATE_TEST_SUITE_P(Dhcp, ServedPostinstall, ServedPostinstall::Both(), ServedPostinstall::NameOf);

TEST_P(ServedPostinstall, FreshInstallMakesTheThreeDefaultNetworksInThePlaceOfAll) {
    Expect(Run({"-v", "--postinstall", "tool,0,2.0"}), 0,
           "arg: tool,0,2.0\npostinstall options: tool 0 2.0\nCommands specified: postinstall \n"
           "Configuration database not found\nConfiguring Bridged network zelan0\n"
           "Configuring hostonly network zelan1, probing for unused subnet ...\n"
           "Configuring NAT network zelan8, probing for unused subnet ...\n"
           "Features configured on zelan0 are:    Bridge \n"
           "Features configured on zelan1 are: subnet DHCP   HostOnlyAdapter\n"
           "Features configured on zelan8 are: subnet DHCP NAT  HostOnlyAdapter\n"
           "Propagated config information for default configuration\n"
           "Configured default networks - Bridged, Hostonly, NAT\n",
           "");
    EXPECT_EQ(DefaultDatabase(), Database());
    EXPECT_EQ(DEFAULT_FILES, Files());
    EXPECT_EQ("", RunShell("awk '/_SUBNET/ {print $3}' /etc/orvane/networking | uniq -d").output);
    EXPECT_EQ("", Daemons());

    ToolTest::Install(Subnet(5) + Feature(5, "DHCP") + Feature(5, "VIRTUAL_ADAPTER") +
                      "add_bridge_mapping eth7 3\n");
    ASSERT_TRUE(Run({"--start"}).Succeeded());
    Expect(Run({"--postinstall", "tool,0,2.0"}), 0,
           std::string("Stopped Bridged networking on zelan0\nStopped Bridged networking on zelan3\n"
                       "Stopped DHCP service on zelan5\n"
                       "Disabled hostonly virtual adapter on zelan5\nStopped Network detection service\n") +
               NOTHING_STOPPED + CONFIGURING,
           "");
    // Removing network 0 has taken the default bridge from it, so that it is written when it comes back.
    std::string database = DefaultDatabase();
    database.insert(database.find('\n') + 1, "answer HBL_DEFAULT_BRIDGE_VNET 0\n");
    EXPECT_EQ(database, Database());
    EXPECT_EQ(DEFAULT_FILES, Files());
    EXPECT_TRUE(WaitUntil([] { return Daemons().empty(); }));
    EXPECT_EQ("", Nodes());
}

TEST_F(Postinstall, UpgradeKeepsTheSettings) {
    const std::string kept =
        "answer HBL_DEFAULT_BRIDGE_VNET -1\n" + Feature(1, "DHCP") +
        "answer VNET_1_DHCP_PARAM_MAX_LEASE_TIME 7300\n" + Subnet(1) + Feature(1, "NAT") +
        "answer VNET_1_VIRTUAL_ADAPTER_ADDR 10.7.1.9\nadd_nat_portfwd 1 tcp 8080 10.7.1.77 80 \n"
        "add_dhcp_mac_to_ip 1 00:0C:29:00:00:01 10.7.1.77\nadd_bridge_mapping eth7 3\n";
    // Exactly "0" is fresh.
    for (const char *argument : {"tool,1.0,2.0", "tool,00,2.0", "tool,,2.0"}) {
        SCOPED_TRACE(argument);
        WriteDatabase(kept + "answer UNKNOWN_KEY 1\n");
        const CommandResult result = Run({"-v", "--postinstall", argument});
        EXPECT_EQ("", result.errors);
        EXPECT_THAT(result.output,
                    MatchesRegex("(.*\n)*Stopped all configured services on all networks\n"
                                 "Making sure all services are stopped\n"
                                 "Backed up existing network settings to backup file \"/tmp/orvane.......\"\n"
                                 "(Features configured.*\n)*"
                                 "Propagated config information for restored settings\n"
                                 "Restored network settings\n"));
        const std::string withoutHash = RunShell(std::string("grep -v HASH ") + DATABASE).output;
        EXPECT_EQ("VERSION=1,0\n" + kept, withoutHash);
        EXPECT_EQ("./networking ./networking.bak.0 ./zelan1/dhcpd/dhcpd.conf ./zelan1/nat/nat.conf ",
                  Files());
        EXPECT_THAT(ReadFileText("/etc/orvane/networking.bak.0"), HasSubstr("answer UNKNOWN_KEY 1\n"));
        EXPECT_EQ("", Names("/tmp/orvane.*"));
        Must("rm -r /etc/orvane/networking* /etc/orvane/zelan*");
    }
}

TEST_F(Postinstall, UpgradeOfADatabaseThatIsNoneFallsBackToTheDefaults) {
    WriteDatabase("");
    ASSERT_TRUE(Run({"--start"}).Succeeded());
    const pid_t detection = Pid("zelan-detect");
    for (const char *content : {"VERSIO=1,0\nanswer A 1\n", "", "VERSION=2,0\n"}) {
        SCOPED_TRACE(content);
        WriteFileText(DATABASE, content);
        Expect(Upgrade(), 0,
               std::string("Network settings database seems to be invalid,configuring default settings\n") +
                   CONFIGURING,
               "");
        EXPECT_EQ(DefaultDatabase(), Database());
        EXPECT_EQ(content, ReadFileText("/etc/orvane/networking.bak.0"));
        EXPECT_TRUE(Runs(detection)) << "without a stop sweep";
        Must("rm /etc/orvane/networking.bak.0");
    }
}

TEST_F(Postinstall, FreshInstallThatFailsLeavesNoDatabase) {
    WriteFileText("/etc/orvane/zelan1", "");
    Expect(Run({"--postinstall", "tool,0,2.0"}), 1,
           std::string(CONFIGURING, strstr(CONFIGURING, "Configured")) + NOTHING_STOPPED,
           "Failed to create DHCP configuration file for network zelan1\n"
           "Failed to remove NAT configuration file for network zelan1\n"
           "Failed to configure default network settings\n");
    EXPECT_EQ("", Files());
    Replace("orvane-ping", "exit 0\n");
    Expect(Run({"--postinstall", "tool,0,2.0"}), 1,
           std::string(CONFIGURING, strstr(CONFIGURING, "Configuring NAT")) + NOTHING_STOPPED,
           "Failed to assign subnet address to hostonly network: zelan1\n");
    EXPECT_EQ("", Files());
}

TEST_F(Postinstall, UpgradeThatCannotBackUpChangesNothing) {
    WriteDatabase(Subnet(1) + Feature(1, "NAT"));
    const std::string before = ReadFileText(DATABASE);
    const std::tuple<const char *, const char *, const char *> cases[] = {
        {"mount -o remount,ro /tmp", "",
         "Failed to create temporary file to backup existing network settings\n"},
        {"mount -o remount,size=16k /tmp; head -c 64k /dev/zero > /tmp/full || true", NOTHING_STOPPED,
         "Failed to export network settings to a backup file\n"},
    };
    for (const auto &[trouble, output, errors] : cases) {
        SCOPED_TRACE(trouble);
        Must(trouble);
        Expect(Upgrade(), 1, output, errors);
        EXPECT_EQ("./networking ", Files());
        EXPECT_EQ(before, ReadFileText(DATABASE));
        EXPECT_EQ("", Names("/tmp/orvane.*"));
        Must("mount -o remount,rw,size=64m /tmp; rm -f /tmp/full");
    }
}

// The first kill of the upgrade is one of its stops.
TEST_F(Postinstall, WhatAnUpgradeUsesInTmpIsItsOwnWhileItStopsTheNetworks) {
    WriteDatabase(Subnet(1));
    ASSERT_TRUE(Run({"--start"}).Succeeded());
    Must("chmod 1777 /tmp");
    BackgroundCommand run({"sh", "-c",
                           std::string(STRACE) +
                               "-qq -o /run/trace -e trace=kill "
                               "-e inject=kill:delay_enter=1000000:when=1 " +
                               ProgramPath("harbrelCLI") + " --postinstall tool,1.0,2.0"});
    ASSERT_TRUE(WaitUntil([] { return !Names("/tmp/orvane.*.lck").empty(); }));
    EXPECT_EQ("", RunShell("cd /tmp && setpriv --reuid=65534 --regid=65534 --clear-groups sh -c 'for f in "
                           "orvane.??????; do cat $f; rm -f $f; ln -s /etc/orvane/config $f; rmdir $f.lck; "
                           "ln -s / $f.lck; touch $f.lck/M1; done'")
                      .output);
    EXPECT_EQ(0, run.Wait());
    EXPECT_EQ("./networking ./networking.bak.0 ", Files());
    EXPECT_EQ("", Names("/tmp/orvane.*"));
}

TEST_F(Postinstall, FailedPropagationKeepsAnUpgradeAndClearsAMigration) {
    const std::string settings = Subnet(1) + Feature(1, "DHCP");
    const std::string failed =
        "Failed to create DHCP configuration file for network zelan1\n"
        "Failed to restore network settings from backup file ";
    WriteDatabase(settings);
    WriteFileText(PidFile("zelan-dhcpd-zelan1"), "no number\n");
    const CommandResult upgrade = Upgrade();
    EXPECT_EQ(1, upgrade.status);
    EXPECT_THAT(upgrade.errors, MatchesRegex(failed + "\"/tmp/orvane.......\"\n"));
    EXPECT_EQ("./networking ./networking.bak.0 ", Files());
    EXPECT_THAT(ReadFileText(DATABASE), HasSubstr("answer VNET_1_DHCP yes\n"));

    WriteFileText("/tmp/settings", "BACKUP_VERSION=1,0\n" + settings);
    Expect(Run({"--migrate-network-settings", "/tmp/settings"}), 1,
           std::string(NOTHING_STOPPED) + NOTHING_STOPPED, failed + "\"/tmp/settings\"\n");
    EXPECT_EQ("./networking.bak.0 ", Files());
}

TEST_F(Postinstall, MigrationTakesARegularFileOnly) {
    WriteDatabase(Subnet(1));
    const std::string before = ReadFileText(DATABASE);
    Must("cd /tmp && mkdir folder && mkfifo fifo && ln -s nothing link && ln -s /etc/orvane/networking self");
    for (const std::string path :
         {"/tmp/missing", "/tmp/folder", "/tmp/fifo", "/tmp/link", "", "/tmp/self"}) {
        const char *reason = path == "/tmp/self" ? "is the networking database itself" : "does not exist";
        Expect(Run({"--migrate-network-settings", path}), 1, "",
               "Settings file \"" + path + "\" " + reason + "\n");
        EXPECT_EQ(before, ReadFileText(DATABASE)) << path;
    }
}

TEST_F(Postinstall, MigrationReplacesTheConfiguration) {
    // The settings and the database that they leave; empty: none.
    const std::pair<std::string, const char *> cases[] = {
        {"BACKUP_VERSION=1,0\nanswer VNET_2_NAT no\nanswer RUNDIR /nowhere\n",
         "VERSION=1,0\nanswer VNET_2_NAT no\n"},
        // The older format, of which one key becomes a mapping and another two answers.
        {"answer VNET_2_INTERFACE eth1\nanswer VNET_1_HOSTONLY_HOSTADDR 192.168.1.1\nnonsense\n",
         "VERSION=1,0\nanswer VNET_1_VIRTUAL_ADAPTER yes\nanswer VNET_1_VIRTUAL_ADAPTER_ADDR 192.168.1.1\n"
         "add_bridge_mapping eth1 2\n"},
        {"", "VERSION=1,0\n"},
        {"BACKUP_VERSION=2,0\nanswer VNET_2_NAT no\n", ""},
    };
    for (const auto &[settings, database] : cases) {
        SCOPED_TRACE(settings);
        WriteDatabase("add_bridge_mapping eth7 3\n");
        ASSERT_TRUE(Run({"--start"}).Succeeded());
        WriteFileText("/tmp/real", settings);
        Must("ln -sf /tmp/real /tmp/settings");
        const bool taken = database[0] != '\0';
        Expect(Run({"--migrate-network-settings", "/tmp/settings"}), taken ? 0 : 1,
               std::string("Stopped Bridged networking on zelan0\nStopped Bridged networking on zelan3\n"
                           "Stopped Network detection service\n") +
                   NOTHING_STOPPED + (taken ? "Restored network settings\n" : ""),
               taken ? "" : "Failed to import configuration information from backup file /tmp/settings\n");
        EXPECT_EQ(database, ReadFileText(DATABASE));
        EXPECT_EQ(taken ? "./networking " : "", Files());
        EXPECT_EQ(settings, ReadFileText("/tmp/real"));
        EXPECT_TRUE(WaitUntil([] { return Daemons().empty(); }));
    }
}

}  // namespace
