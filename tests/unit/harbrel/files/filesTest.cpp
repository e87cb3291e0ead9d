#include "lib/harbrel/files/files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "lib/harbrel/database/database.h"
#include "tests/support/command.h"
#include "tests/support/fileSizeLimit.h"
#include "tests/support/logCapture.h"
#include "tests/support/tempFolder.h"

namespace {

// A database whose CONFIGDIR is a folder of the test.
class Files : public testing::Test {
  protected:
    Files() { LoadConfigDir(folder / ""); }
    ~Files() override { HBLNetCfgUnload(nullptr, false); }

    void LoadConfigDir(const std::string &configDir) {
        if (*HBLNetCfgDefaultSlot() != nullptr) {
            HBLNetCfgUnload(nullptr, false);
        }
        WriteFileText(folder / "networking", "VERSION=1,0\nanswer CONFIGDIR " + configDir + "\n");
        ASSERT_TRUE(HBLNetCfgLoad((folder / "networking").c_str(), nullptr, false));
    }
    std::string Name(uint32_t vnet, uint32_t type) {
        char path[HBL_PATH_SIZE] = "unset";
        return HBLGetFileName(vnet, type, path, sizeof path) ? path : "refused";
    }
    static mode_t Mode(const std::string &path) {
        struct stat status = {};
        return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
    }

    TempFolder folder;
};

TEST_F(Files, NamesFollowTheConfigurationDirectoryButDevicesDoNot) {
    struct Row {
        uint32_t type;
        const char *path;
    };
    static constexpr Row ROWS[] = {
        {HBL_FILE_VNET_DIR, "/conf/zelan8"},
        {HBL_FILE_DHCP_DIR, "/conf/zelan8/dhcpd"},
        {HBL_FILE_NAT_DIR, "/conf/zelan8/nat"},
        {HBL_FILE_CUSTOM, "refused"},
        {HBL_FILE_DHCP_CONF, "/conf/zelan8/dhcpd/dhcpd.conf"},
        {HBL_FILE_DHCP_CONF_BACKUP, "/conf/zelan8/dhcpd/dhcpd.conf.bak"},
        {HBL_FILE_DHCP_LEASES, "/conf/zelan8/dhcpd/dhcpd.leases"},
        {HBL_FILE_DHCP_LEASES_BACKUP, "/conf/zelan8/dhcpd/dhcpd.leases~"},
        {HBL_FILE_NAT_CONF, "/conf/zelan8/nat/nat.conf"},
        {HBL_FILE_NAT_CONF_BACKUP, "/conf/zelan8/nat/nat.conf.bak"},
        {HBL_FILE_HOST_CONFIG, "/conf/config"},
        {HBL_FILE_DEVICE, "/dev/zelan8"},
        {12, "refused"},
    };
    LoadConfigDir("/conf");
    for (const Row &row : ROWS) {
        EXPECT_EQ(row.path, Name(8, row.type)) << row.type;
    }
    HBLNetCfgUnload(nullptr, false);
    EXPECT_EQ("/etc/orvane/zelan8", Name(8, HBL_FILE_VNET_DIR));
}

TEST_F(Files, NameThatDoesNotFitIsRefused) {
    LoadConfigDir("/" + std::string(HBL_PATH_SIZE - 1 - 8, 'c'));  // with "/zelan8" exactly full
    EXPECT_EQ(HBL_PATH_SIZE - 1, Name(8, HBL_FILE_VNET_DIR).size());
    LogCapture log;
    EXPECT_EQ("refused", Name(88, HBL_FILE_VNET_DIR));
    EXPECT_NE(
        std::string::npos,
        log.Take().find("HBLGetFileName - Error formatting the file name for file type: 0from cD: /cc"));
}

TEST_F(Files, CreatedModesAreExactWhateverTheMask) {
    const mode_t former = umask(077);
    EXPECT_TRUE(HBLCreateFile(8, HBL_FILE_VNET_DIR, nullptr));
    EXPECT_TRUE(HBLCreateFile(8, HBL_FILE_NAT_DIR, nullptr));
    EXPECT_TRUE(HBLCreateFile(8, HBL_FILE_NAT_CONF, nullptr));
    EXPECT_EQ(077u, umask(former));
    EXPECT_EQ(0755u, Mode(Name(8, HBL_FILE_NAT_DIR)));
    EXPECT_EQ(0665u, Mode(Name(8, HBL_FILE_NAT_CONF)));

    WriteFileText(Name(8, HBL_FILE_NAT_CONF), "kept");
    chmod(Name(8, HBL_FILE_NAT_CONF).c_str(), 0600);
    EXPECT_TRUE(HBLCreateFile(8, HBL_FILE_NAT_DIR, nullptr));
    EXPECT_TRUE(HBLCreateFile(8, HBL_FILE_NAT_CONF, nullptr));
    EXPECT_EQ("kept", ReadFileText(Name(8, HBL_FILE_NAT_CONF)));
    EXPECT_EQ(0600u, Mode(Name(8, HBL_FILE_NAT_CONF)));
}

TEST_F(Files, ParentsAreNotMadeAndTheReasonIsLogged) {
    LogCapture log;
    EXPECT_FALSE(HBLCreateFile(8, HBL_FILE_DHCP_DIR, nullptr));
    EXPECT_EQ("HBLCreateFile - Cannot create Directory: " + Name(8, HBL_FILE_DHCP_DIR) +
                  " because of: No such file or directory\n",
              log.Take());
    EXPECT_FALSE(HBLCreateFile(8, HBL_FILE_NAT_CONF, nullptr));
    EXPECT_FALSE(HBLCreateFile(8, HBL_FILE_NAT_CONF, "/tmp/other"));
    EXPECT_NE(std::string::npos, log.Take().find("HBLCreateFile - Invalid arguments\n"));
}

TEST_F(Files, ExistsOnlyWithTheRightKind) {
    const std::string conf = Name(8, HBL_FILE_DHCP_CONF);
    ASSERT_TRUE(std::filesystem::create_directories(conf));
    LogCapture log;
    EXPECT_FALSE(HBLFileExists(8, HBL_FILE_DHCP_CONF, nullptr));
    EXPECT_EQ("HBLFileExists - File/Directory/device of type: 4 and name: " + conf +
                  " is found but is not of valid type\n",
              log.Take());
    EXPECT_TRUE(HBLFileExists(8, HBL_FILE_DHCP_DIR, nullptr));
    EXPECT_TRUE(HBLFileExists(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, conf.c_str()));
    rmdir(conf.c_str());
    WriteFileText(folder / "elsewhere", "");
    ASSERT_EQ(0, symlink((folder / "elsewhere").c_str(), conf.c_str()));
    EXPECT_TRUE(HBLFileExists(8, HBL_FILE_DHCP_CONF, nullptr));
    log.Take();
    EXPECT_FALSE(HBLFileExists(8, HBL_FILE_NAT_DIR, nullptr));
    EXPECT_EQ("HBLFileExists - Cannot check for file or directory: " + Name(8, HBL_FILE_NAT_DIR) +
                  " , error: No such file or directory\n",
              log.Take());
}

TEST_F(Files, HostConfigurationAndUnknownTypesAreRefusedInSilence) {
    WriteFileText(folder / "config", "");
    LogCapture log(HBL_MAX_LOG_MASK);
    for (const uint32_t type : {static_cast<uint32_t>(HBL_FILE_HOST_CONFIG), 12u, ~0u}) {
        EXPECT_FALSE(HBLFileExists(8, type, nullptr)) << type;
        EXPECT_FALSE(HBLCreateFile(8, type, nullptr)) << type;
        EXPECT_FALSE(HBLRemoveFile(8, type, nullptr)) << type;
    }
    EXPECT_EQ("", log.Take());
    EXPECT_TRUE(std::filesystem::exists(folder / "config"));
}

TEST_F(Files, CustomPathsOfUpTo255CharactersAreAccepted) {
    const std::string fits = folder.Path() + std::string(255 - folder.Path().size(), '/');
    const std::string tooLong = fits + "/";
    EXPECT_TRUE(HBLFileExists(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, fits.c_str()));
    LogCapture log;
    EXPECT_FALSE(HBLFileExists(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, tooLong.c_str()));
    EXPECT_EQ("HBLFileExists - Custom file name " + tooLong + " is longer than allowed 256 characters\n",
              log.Take());
    EXPECT_FALSE(HBLCreateFile(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, tooLong.c_str()));
    EXPECT_FALSE(HBLRemoveFile(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, tooLong.c_str()));
}

TEST_F(Files, RemovingWhatIsGoneSucceedsAndWhatIsFullDoesNot) {
    LogCapture log(LOG_ERR | LOG_WRN);
    EXPECT_TRUE(HBLRemoveFile(8, HBL_FILE_NAT_CONF, nullptr));
    EXPECT_TRUE(HBLRemoveFile(8, HBL_FILE_NAT_DIR, nullptr));
    EXPECT_EQ("HBLRemoveFile - File " + Name(8, HBL_FILE_NAT_CONF) +
                  " does not exist\nHBLRemoveFile - Directory " + Name(8, HBL_FILE_NAT_DIR) +
                  " does not exist\n",
              log.Take());
    ASSERT_TRUE(std::filesystem::create_directories(Name(8, HBL_FILE_DHCP_DIR)));
    EXPECT_FALSE(HBLRemoveFile(8, HBL_FILE_VNET_DIR, nullptr));
    EXPECT_EQ("HBLRemoveFile - Cannot delete Directory: " + Name(8, HBL_FILE_VNET_DIR) +
                  " because of: Directory not empty\n",
              log.Take());
    EXPECT_TRUE(HBLRemoveFile(8, HBL_FILE_DHCP_DIR, nullptr));
    EXPECT_TRUE(HBLRemoveFile(8, HBL_FILE_VNET_DIR, nullptr));
    EXPECT_EQ("", log.Take());
}

TEST_F(Files, CopyTakesTheWholeContent) {
    const std::string source = folder / "source", copy = folder / "copy";
    for (const size_t size : {size_t{3}, size_t{1024}, size_t{5000}, size_t{0}}) {
        const std::string text(size, 'x');
        WriteFileText(source, text);
        EXPECT_TRUE(HBLCopyFile(source.c_str(), copy.c_str()));
        EXPECT_EQ(text, ReadFileText(copy)) << size;
    }
    EXPECT_EQ(0665u, Mode(copy));
}

TEST_F(Files, CopyThatFailsNamesTheFileAndTheReason) {
    const std::string source = folder / "source", copy = folder / "copy";
    LogCapture log;
    EXPECT_FALSE(HBLCopyFile(source.c_str(), copy.c_str()));
    EXPECT_EQ("HBLCopyFile - Could not open source file: " + source + ", error: No such file or directory\n",
              log.Take());
    WriteFileText(source, std::string(5000, 'x'));
    {
        const FileSizeLimit limit(1500);  // the second block goes in half
        EXPECT_FALSE(HBLCopyFile(source.c_str(), copy.c_str()));
    }
    EXPECT_EQ("HBLCopyFile - Writing to destination file: " + copy + " failed, error: File too large\n",
              log.Take());
    EXPECT_FALSE(HBLCopyFile(folder.Path().c_str(), copy.c_str()));
    EXPECT_EQ("HBLCopyFile - Reading from source file: " + folder.Path() + " failed, error: Is a directory\n",
              log.Take());
}

}  // namespace
