// Load and unload by the fixed paths: the log, the answers, and what is left on disk.
#include <sys/stat.h>

#include <string>

#include "tests/host/loadedLibrary.h"

namespace {

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

TEST_F(Lifecycle, StoredLevelDecidesWhichTestLinesAreWritten) {
    struct Row {
        const char *record;
        const char *lines;
    };
    static constexpr Row ROWS[] = {
        {"", "LOG_ERR LOG_WRN LOG_OK "},
        {"answer HBL_LOGLEVEL 0x7f\n", "LOG_ERR LOG_ERRCMN LOG_WRN LOG_OK LOG_INFO LOG_INFO2 LOG_ARGS "},
        {"answer HBL_LOGLEVEL 127\n", "LOG_ERR LOG_ERRCMN LOG_WRN LOG_OK LOG_INFO LOG_INFO2 LOG_ARGS "},
        {"answer HBL_LOGLEVEL 012\n", "LOG_WRN LOG_INFO "},
        {"answer HBL_LOGLEVEL 0\n", ""},
        {"answer HBL_LOGLEVEL -1\n", "LOG_ERR LOG_WRN LOG_OK "},
        {"answer HBL_LOGLEVEL loud\n", "LOG_ERR LOG_WRN LOG_OK "},
        {"answer HBL_LOGLEVEL 0x100\n", ""},
    };
    for (const Row &row : ROWS) {
        std::filesystem::remove("/var/log/harbrel");
        WriteDatabase(row.record);
        ASSERT_TRUE(HBL_Load());
        const std::string log = Log();
        HBL_Unload();
        std::string lines;
        for (const char *level :
             {"LOG_ERR", "LOG_ERRCMN", "LOG_WRN", "LOG_OK", "LOG_INFO", "LOG_INFO2", "LOG_ARGS"}) {
            if (log.find(std::string("HBL_Load - ") + level + " logged\n") != std::string::npos) {
                lines.append(level).append(" ");
            }
        }
        EXPECT_EQ(row.lines, lines) << row.record << log;
    }
}

TEST_F(Lifecycle, LogOfAnUneventfulRunIsShort) {
    WriteDatabase("answer HBL_LOGLEVEL 25\nanswer HBL_DEFAULT_BRIDGE_VNET 0\n");
    WriteFileText("/etc/orvane/config", "bindir = \"/usr/bin\"\n");
    ASSERT_TRUE(HBL_Load());
    HBL_Unload();
    EXPECT_EQ(
        "HBL_Load - LOG_ERR logged\nHBL_Load - LOG_WRN logged\nHBL_Load - LOG_OK logged\n"
        "HBL_Load - Successfully initialized Harbrel\nHBL_Unload - Harbrel unloaded.\n",
        Log());
}

TEST_F(Lifecycle, LogMovesToTheStoredFile) {
    struct Row {
        std::string path;  // the stored value
        std::string used;  // where the success line stands
        std::string complaint;
    };
    const std::string longPath = "/tmp/" + std::string(251, 'l');
    const Row rows[] = {
        {"/tmp/moved", "/tmp/moved", ""},
        {"/var/log/harbrel", "/var/log/harbrel", ""},
        {"/tmp/none/log", "/var/log/harbrel",
         "HBL_Load - fopen: opening log file: /tmp/none/log failed, error: No such file or directory\n"},
        {longPath, "/var/log/harbrel", ""},
    };
    for (const Row &row : rows) {
        std::filesystem::remove("/var/log/harbrel");
        WriteDatabase("answer HBL_LOGLEVEL 25\nanswer HBL_LOG_FILE " + row.path + "\n");
        ASSERT_TRUE(HBL_Load());
        EXPECT_NE(std::string::npos, Log(row.used).find("HBL_Load - Successfully initialized Harbrel\n"))
            << row.path;
        EXPECT_EQ(!row.complaint.empty(), Log().find("fopen") != std::string::npos) << row.path;
        EXPECT_NE(std::string::npos, Log().find(row.complaint)) << row.path;
        HBL_Unload();
    }
}

TEST_F(Lifecycle, OnlyTheLastUnloadWritesTheDatabase) {
    WriteDatabase("answer HBL_LOGLEVEL 16\nadd_bridge_mapping eth0 2\nanswer A 1\nanswer BINDIR /old\n");
    WriteFileText("/etc/orvane/config", "bindir = \"/usr/bin\"\n");
    ASSERT_TRUE(HBL_Load());
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
    HBL_Unload();  // one too many does nothing
    EXPECT_EQ("(none)", Answer("A"));
}

TEST_F(Lifecycle, AnswerCallsRefuseNullsAndAnUnloadedLibrary) {
    const char *value = nullptr;
    EXPECT_FALSE(HBL_VnetCfgAddAnswer("K", "v"));
    EXPECT_FALSE(HBL_VnetCfgRemoveAnswer("K"));
    WriteDatabase("answer HBL_LOGLEVEL 1\n");
    ASSERT_TRUE(HBL_Load());
    std::filesystem::resize_file("/var/log/harbrel", (Log(), 0));
    EXPECT_FALSE(HBL_VnetCfgGetAnswer(nullptr, &value));
    EXPECT_FALSE(HBL_VnetCfgGetAnswer("K", nullptr));
    EXPECT_FALSE(HBL_VnetCfgAddAnswer("K", nullptr));
    EXPECT_FALSE(HBL_VnetCfgAddAnswer(nullptr, "v"));
    EXPECT_FALSE(HBL_VnetCfgRemoveAnswer(nullptr));
    EXPECT_EQ(
        "HBL_VnetCfgGetAnswer - Invalid argument\nHBL_VnetCfgGetAnswer - Invalid argument\n"
        "HBL_VnetCfgAddAnswer - Invalid argument\nHBL_VnetCfgAddAnswer - Invalid argument\n"
        "HBL_VnetCfgRemoveAnswer - Invalid argument\n",
        Log());
}

TEST_F(Lifecycle, DefaultLevelIsStoredAndTakesEffectAtTheNextLoad) {
    EXPECT_EQ(256u, HBL_GetNumVnets());
    EXPECT_TRUE(HBL_SetLogLevel(3));
    EXPECT_EQ(3u, HBL_GetLogLevel());
    EXPECT_FALSE(HBL_SetDefaultLogLevel(1));
    WriteDatabase("answer HBL_LOGLEVEL 1\n");
    ASSERT_TRUE(HBL_Load());
    EXPECT_FALSE(HBL_SetDefaultLogLevel(128));
    EXPECT_NE(std::string::npos,
              Log().find("HBL_SetDefaultLogLevel - Invalid log level: 80, max log level: 7f\n"));
    EXPECT_TRUE(HBL_SetDefaultLogLevel(127));
    EXPECT_EQ("0x7f", Answer("HBL_LOGLEVEL"));
    EXPECT_EQ(1u, HBL_GetLogLevel());
    HBL_Unload();
    ASSERT_TRUE(HBL_Load());
    EXPECT_EQ(127u, HBL_GetLogLevel());
}

}  // namespace
