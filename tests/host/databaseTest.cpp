// The database file through the exported calls, with full disks and other processes in their way.
#include <gmock/gmock.h>
#include <malloc.h>
#include <sys/stat.h>

#include <string>

#include "lib/file/fileLock.h"
#include "tests/host/loadedLibrary.h"
#include "tests/support/fileSizeLimit.h"
#include "tests/support/otherProcess.h"

using DatabaseOnHost = LibraryTest;
using testing::EndsWith;
using testing::HasSubstr;

constexpr const char *DATABASE = "/etc/orvane/networking";
constexpr const char *EXPORT = "/tmp/networking_export";

TEST_F(DatabaseOnHost, RewriteOnAFullDiskKeepsTheJournal) {
    const std::string records = "answer HBL_LOGLEVEL 1\nanswer A " + std::string(1500, 'a') + "\n";
    LoadWith(records);
    EXPECT_TRUE(HBL_VnetCfgAddAnswer("B", "2"));
    Log();
    OnFullDisk(1000, HBL_Unload);
    EXPECT_EQ("VERSION=1,0\n" + records + "answer B 2\n", Database());
    EXPECT_EQ("", OtherFiles());
}

// One that is there already is on the disk; an equal one would have to be brought there first.
TEST_F(DatabaseOnHost, UnloadLeavesAFileThatItWouldNotChange) {
    struct stat before;
    struct stat after;
    const struct {
        const char *what;
        const char *disturb;
        bool stays;
    } rows[] = {
        {"as the last unload left it", "true", true},
        {"other order", "printf 'VERSION=1,0\\nanswer B 2\\nanswer A 1\\n' > networking", false},
        {"equal length", "sed -i 's/answer A 1/remove_ A/' networking; chmod 600 networking", false},
        {"other mode", "chmod 640 networking", false},
        {"other owner", "chown 1:1 networking", false},
        {"second name", "ln networking networking.bak.0", false},
        {"link to the file", "mv networking other; ln -s other networking", false},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        LoadWith("answer A 1\nanswer B 2\n");
        HBL_Unload();
        ASSERT_TRUE(RunShell(std::string("cd /etc/orvane; ") + row.disturb).Succeeded());
        ASSERT_EQ(0, stat(DATABASE, &before));
        ASSERT_TRUE(HBL_Load());
        HBL_Unload();
        ASSERT_EQ(0, lstat(DATABASE, &after));
        EXPECT_EQ(row.stays, before.st_ino == after.st_ino);
        EXPECT_EQ(S_IFREG | 0600u, after.st_mode);
        EXPECT_EQ(0u, after.st_uid);
        EXPECT_THAT(OtherFiles(), testing::Not(HasSubstr(".networking.")));
    }
}

// Each rewrite of the other process is read anew here.
TEST_F(DatabaseOnHost, ProcessThatStaysLoadedKeepsNothingOfFormerContents) {
    std::string records = "answer HBL_LOGLEVEL 1\n";
    for (int i = 10; i < 100; i++) {
        const std::string n = std::to_string(i);
        records += "add_nat_portfwd 8 tcp " + n + " 10.0.0.1 80 web\nadd_bridge_mapping eth" + n +
                   " 2\nanswer N" + n + " n\nadd_dhcp_mac_to_ip 8 02:00:00:00:00:" + n + " 10.0.0.2\n";
    }
    WriteDatabase(records);
    OtherProcess other({[] {
        const bool changed = HBL_Load() && HBL_VnetCfgAddAnswer("OTHER", "1");
        HBL_Unload();
        return changed;
    }});
    ASSERT_TRUE(HBL_Load());
    const auto usedAfter = [&other](int rewrites) {
        for (int i = 0; i < rewrites; i++) {
            EXPECT_TRUE(other.Do(0));
            EXPECT_TRUE(HBL_SetDefaultLogLevel(1));
        }
        return mallinfo2().uordblks;
    };
    // What the allocator itself keeps for later differs by some thousand bytes; one kind of record is more.
    const size_t used = usedAfter(5);
    EXPECT_NEAR(static_cast<double>(used), static_cast<double>(usedAfter(30)), 10000.0);
}

TEST_F(DatabaseOnHost, LockedDatabaseIsNotRewritten) {
    WriteDatabase("answer HBL_LOGLEVEL 9\nanswer A 1\n");
    OtherProcess other({[] {
        int error = 0;
        return FileLock_Lock(DATABASE, false, FILE_LOCK_INFINITE_WAIT, &error) != nullptr;
    }});
    ASSERT_TRUE(HBL_Load());
    EXPECT_TRUE(HBL_VnetCfgAddAnswer("A", "2"));
    ASSERT_TRUE(other.Do(0));
    EXPECT_FALSE(HBL_SetDefaultLogLevel(1));
    HBL_Unload();
    EXPECT_EQ("VERSION=1,0\nanswer HBL_LOGLEVEL 9\nanswer A 1\nremove_answer A\nanswer A 2\n", Database());
    EXPECT_THAT(Log(), HasSubstr("HBLNetCfgLockConfig - Failed to lock config file, file: "
                                 "/etc/orvane/networking, error: timed out\n"
                                 "HBL_SetDefaultLogLevel - Failed to obtain lock on vnet config\n"));
}

TEST_F(DatabaseOnHost, CreationAndDeletionNeedAnUnloadedLibrary) {
    const std::string create = "HBL_CreateNetworkingDB - ";
    const std::string created =
        create + "Created and initialized networking configuration database: " + DATABASE;
    const std::string needsUnload =
        "harbrel is initialized, unload the data structures and delete existing networking configuration "
        "database before creating new one\n";
    EXPECT_FALSE(HBL_CheckNetworkingDB());
    EXPECT_FALSE(HBL_NetworkingDBExists());
    EXPECT_TRUE(HBL_CreateNetworkingDB(true));
    EXPECT_EQ("", OtherFiles());
    WriteDatabase("answer A 1\n");
    EXPECT_FALSE(HBL_CreateNetworkingDB(false));
    EXPECT_THAT(Log(), EndsWith(created + "\n" + create +
                                "Existing networking configuration database must be deleted before creating "
                                "new one\n"));
    EXPECT_TRUE(HBL_CreateNetworkingDB(true));
    EXPECT_EQ("VERSION=1,0\nanswer A 1\n", ReadFileText("/etc/orvane/networking.bak.0"));
    EXPECT_EQ("VERSION=1,0\n", Database());
    EXPECT_EQ(nullptr, HBLLogStream());
    ASSERT_TRUE(HBL_Load());
    EXPECT_TRUE(HBL_CheckNetworkingDB());
    EXPECT_FALSE(HBL_CreateNetworkingDB(true));
    EXPECT_THAT(Log(), EndsWith(create + needsUnload));
    EXPECT_FALSE(HBL_DeleteNetworkingDB());
    EXPECT_THAT(Log(), EndsWith("HBL_DeleteNetworkingDB - " + needsUnload));
    EXPECT_TRUE(HBL_NetworkingDBExists());
    HBL_Unload();
    EXPECT_TRUE(HBL_DeleteNetworkingDB());
    EXPECT_TRUE(HBL_DeleteNetworkingDB());
    EXPECT_EQ("networking.bak.0 ", OtherFiles());
    EXPECT_FALSE(HBL_NetworkingDBExists());
}

TEST_F(DatabaseOnHost, CheckReadsTheVersionAlone) {
    static constexpr struct {
        const char *text;
        bool good;
        const char *lastLine;
    } CASES[] = {
        {"VERSION=1,7\nno record\n", true, ""},
        {"", false, "HBLNetCfgCheckVersion - Failed to read version number, error: "},
        {"answer A 1\n", false, "HBLNetCfgCheckVersion - Cannot find version in database file\n"},
        {"VERSION=2,0\n", false, "ParseVersionString - Unsupported major version, supported: 1, actual: 2\n"},
    };
    for (const auto &row : CASES) {
        std::filesystem::remove("/var/log/harbrel");
        WriteFileText(DATABASE, row.text);
        EXPECT_EQ(row.good, HBL_CheckNetworkingDB()) << row.text;
        EXPECT_TRUE(Log().starts_with(row.lastLine) && Log().empty() == row.good) << Log();
    }
}

TEST_F(DatabaseOnHost, ExportAndImportMeetAtTheDefaultFile) {
    std::filesystem::remove(EXPORT);
    EXPECT_FALSE(HBL_ExportDatabaseToFile(nullptr));
    EXPECT_FALSE(HBL_ImportDatabaseFromFile(nullptr));
    EXPECT_THAT(Log(), HasSubstr("HBL_ImportDatabaseFromFile - Import file does not exist\n"));
    LoadWith("answer HBL_LOGLEVEL 1\nanswer VNET_1_DHCP yes\nanswer MY_NOTE kept\n");
    HBL_SetLogLevel(LOG_ERR | LOG_OK);
    EXPECT_TRUE(HBL_ExportDatabaseToFile(nullptr));
    EXPECT_THAT(Log(), EndsWith("HBL_ExportDatabaseToFile - Exported configuration database to backup file: "
                                "/tmp/networking_export\n"));
    EXPECT_EQ("BACKUP_VERSION=1,0\nanswer HBL_LOGLEVEL 1\nanswer MY_NOTE kept\nanswer VNET_1_DHCP yes\n",
              ReadFileText(EXPORT));
    HBL_Unload();
    EXPECT_TRUE(HBL_ImportDatabaseFromFile(nullptr));
    EXPECT_THAT(Log(), EndsWith("HBL_ImportDatabaseFromFile - Imported configration data from backup file: "
                                "/tmp/networking_export\n"));
    EXPECT_EQ("VERSION=1,0\nanswer HBL_LOGLEVEL 1\nanswer VNET_1_DHCP yes\n", Database());
    EXPECT_EQ("networking.bak.0 ", OtherFiles());
    WriteFileText(EXPORT, "BACKUP_VERSION=2,0\n");
    EXPECT_FALSE(HBL_ImportDatabaseFromFile(nullptr));
    EXPECT_THAT(Log(),
                EndsWith("HBL_ImportDatabaseFromFile - Failed to import configuration data from backup "
                         "file: /tmp/networking_export\n"));
    EXPECT_EQ(nullptr, HBLLogStream());
}

TEST_F(DatabaseOnHost, ImportWhileLoadedKeepsTheDaemonsFolder) {
    WriteFileText("/etc/orvane/config", "bindir = \"/usr/bin\"\n");
    WriteFileText("/tmp/settings", "BACKUP_VERSION=1,0\nadd_bridge_mapping eth1 2\n");
    LoadWith("answer HBL_LOGLEVEL 1\nanswer VNET_1_DHCP yes\n");
    EXPECT_TRUE(HBL_ImportDatabaseFromFile("/tmp/settings"));
    EXPECT_THAT(Log(),
                HasSubstr("NetCfgUpdateDatabaseFields - Source and destination database versions are same\n"
                          "HBLNetCfgImportConfig - Reopened database file: /etc/orvane/networking\n"));
    EXPECT_EQ("/usr/bin", Answer("BINDIR"));
    EXPECT_EQ("(none)", Answer("VNET_1_DHCP"));
    EXPECT_TRUE(HBL_SetDefaultLogLevel(2));
    HBL_Unload();
    EXPECT_EQ("VERSION=1,0\nanswer HBL_LOGLEVEL 0x2\nadd_bridge_mapping eth1 2\n", Database());
}

TEST_F(DatabaseOnHost, WhatIsNoRegularFileIsRefusedAtOnceAndStays) {
    for (const std::string make : {"mkfifo ", "mkdir ", "mknod -m 666 "}) {
        SCOPED_TRACE(make);
        const auto put = [&make](const std::string &path) {
            std::filesystem::remove_all(path);
            return RunShell(make + path + (make[2] == 'n' ? " c 1 3" : "")).Succeeded();
        };
        const auto stands = [](const std::string &path) {
            struct stat status = {};
            return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
        };
        LoadWith("answer HBL_LOGLEVEL 1\n");
        ASSERT_TRUE(put(EXPORT));
        EXPECT_FALSE(HBL_ExportDatabaseToFile(nullptr));
        EXPECT_FALSE(HBL_ImportDatabaseFromFile(nullptr));
        EXPECT_TRUE(HBL_SetDefaultLogLevel(1));  // loaded still, and nobody holds the lock
        HBL_Unload();
        EXPECT_TRUE(stands(EXPORT));
        ASSERT_TRUE(put(DATABASE));
        EXPECT_FALSE(HBL_Load());
        EXPECT_FALSE(HBL_CheckNetworkingDB());
        EXPECT_FALSE(HBL_CreateNetworkingDB(true));
        WriteFileText("/tmp/settings", "BACKUP_VERSION=1,0\n");
        EXPECT_FALSE(HBL_ImportDatabaseFromFile("/tmp/settings"));
        EXPECT_TRUE(stands(DATABASE));
        std::filesystem::remove_all(DATABASE);
        ASSERT_TRUE(put("/etc/orvane/config"));
        LoadWith("");
        HBL_Unload();
    }
    ASSERT_TRUE(RunShell("rm -rf /var/log/harbrel && mkfifo /var/log/harbrel").Succeeded());
    EXPECT_FALSE(HBL_Load());
}
