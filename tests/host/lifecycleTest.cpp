// Load and unload by the fixed paths: the log, the answers, and what is left on disk.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <string>

#include "tests/host/loadedLibrary.h"

using Lifecycle = LibraryTest;

TEST_F(Lifecycle, LoadWithoutALogOrADatabaseFails) {
    std::filesystem::create_directory("/var/log/harbrel");
    WriteDatabase("");
    EXPECT_FALSE(HBL_Load());
    std::filesystem::remove("/var/log/harbrel");
    std::filesystem::remove("/etc/orvane/networking");
    EXPECT_FALSE(HBL_Load());
    EXPECT_EQ(
        "HBLFileExists - Cannot check for file or directory: /etc/orvane/networking , error: No such file or "
        "directory\n"
        "HBLNetCfgLoad - Import file does not exist\n"
        "HBL_Load - Error loading the vnet configuration, file used: /etc/orvane/networking\n"
        "HBLNetCfgUnload - Requested cache is not loaded\n",
        Log());
    WriteDatabase("");
    EXPECT_TRUE(HBL_Load());
}

TEST_F(Lifecycle, LogMovesToTheStoredFile) {
    for (const std::string path : {"/tmp/moved", "/tmp/none/log"}) {
        std::filesystem::remove("/var/log/harbrel");
        LoadWith("answer HBL_LOGLEVEL 17\nanswer HBL_LOG_FILE " + path + "\n");
        const bool moved = path == "/tmp/moved";
        EXPECT_THAT(Log(moved ? path : "/var/log/harbrel"),
                    testing::HasSubstr("HBL_Load - Successfully initialized Harbrel\n"));
        EXPECT_EQ(moved, Log().find("opening log file: /tmp/none/log failed") == std::string::npos);
        HBL_Unload();
    }
}

TEST_F(Lifecycle, OnlyTheLastUnloadWritesTheDatabase) {
    WriteFileText("/etc/orvane/config", "bindir = \"/usr/bin\"\n");
    LoadWith("answer HBL_LOGLEVEL 16\nadd_bridge_mapping eth0 2\nanswer A 1\nanswer BINDIR /old\n");
    const std::string before = Database();
    WriteFileText("/etc/orvane/config", "bindir = \"/other\"\n");
    ASSERT_TRUE(HBL_Load());
    EXPECT_EQ("/usr/bin", Answer("BINDIR"));
    EXPECT_TRUE(HBL_VnetCfgAddAnswer("A", "2"));
    EXPECT_TRUE(HBL_VnetCfgRemoveAnswer("no_such_key"));
    HBL_Unload();
    EXPECT_EQ(before + "remove_answer A\nanswer A 2\n", Database());
    EXPECT_EQ("2", Answer("a"));
    HBL_Unload();
    EXPECT_EQ("VERSION=1,0\nanswer A 2\nanswer HBL_LOGLEVEL 16\nadd_bridge_mapping eth0 2\n", Database());
    struct stat status = {};
    ASSERT_EQ(0, stat("/etc/orvane/networking", &status));
    EXPECT_EQ(0600u, status.st_mode & 07777);
    EXPECT_EQ("config ", OtherFiles());
    EXPECT_EQ(nullptr, HBLLogStream());
    HBL_Unload();  // one too many does nothing
    EXPECT_EQ("(none)", Answer("A"));
}

TEST_F(Lifecycle, LoadsAreCountedUpToTheLastNumberOfSixteenBits) {
    LoadWith("answer HBL_LOGLEVEL 3\n");
    ASSERT_TRUE(HBL_Load());
    EXPECT_THAT(Log(), testing::EndsWith("HBL_Load - harbrel is already loaded\n"));
    HBL_SetLogLevel(LOG_ERR);
    for (unsigned loads = 2; loads < UINT16_MAX; loads++) {
        ASSERT_TRUE(HBL_Load());
    }
    EXPECT_FALSE(HBL_Load());
    EXPECT_THAT(Log(), testing::EndsWith("HBL_Load - harbrel is loaded too many times: 65535\n"));
    for (unsigned loads = 1; loads < UINT16_MAX; loads++) {
        HBL_Unload();
    }
    EXPECT_TRUE(HBL_VnetCfgAddAnswer("A", "1")) << "one load is left";
}

TEST_F(Lifecycle, SettersNeedALoadedLibraryAndGoodArguments) {
    EXPECT_EQ(256u, HBL_GetNumVnets());
    LoadWith("answer HBL_LOGLEVEL 1\n");
    EXPECT_FALSE(HBL_VnetCfgGetAnswer("K", nullptr));
    EXPECT_FALSE(HBL_VnetCfgAddAnswer("K", nullptr));
    EXPECT_FALSE(HBL_VnetCfgAddAnswer(nullptr, "v"));
    EXPECT_FALSE(HBL_VnetCfgRemoveAnswer(nullptr));
    EXPECT_FALSE(HBL_SetDefaultLogLevel(128));
    EXPECT_THAT(Log(),
                testing::EndsWith("HBL_VnetCfgRemoveAnswer - Invalid argument\n"
                                  "HBL_SetDefaultLogLevel - Invalid log level: 80, max log level: 7f\n"));
    // The stored level takes effect at the next load.
    EXPECT_TRUE(HBL_SetDefaultLogLevel(127));
    EXPECT_EQ("0x7f", Answer("HBL_LOGLEVEL"));
    EXPECT_EQ(1u, HBL_GetLogLevel());
    HBL_Unload();
    ASSERT_TRUE(HBL_Load());
    EXPECT_EQ(127u, HBL_GetLogLevel());
    EXPECT_THAT(Log(),
                testing::HasSubstr(
                    "HBL_Load - LOG_ERR logged\nHBL_Load - LOG_ERRCMN logged\nHBL_Load - LOG_WRN logged\n"
                    "HBL_Load - LOG_OK logged\nHBL_Load - LOG_INFO logged\nHBL_Load - LOG_INFO2 logged\n"
                    "HBL_Load - LOG_ARGS logged\nHBL_Load - Config file used: /etc/orvane/networking\n"));
    HBL_Unload();
    LoadWith("answer HBL_LOGLEVEL loud\n");
    EXPECT_EQ(LOG_ERR | LOG_WRN | LOG_OK, HBL_GetLogLevel());
}
