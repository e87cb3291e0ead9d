#include "lib/harbrel/files/files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tests/support/fakePrograms.h"
#include "tests/support/fileSizeLimit.h"
#include "tests/support/logCapture.h"

namespace {

class Files : public testing::Test {
  protected:
    static std::string Name(uint32_t vnet, uint32_t type) {
        char path[HBL_PATH_SIZE] = "unset";
        return HBLGetFileName(vnet, type, path, sizeof path) ? path : "refused";
    }
    static mode_t Mode(const std::string &path) {
        struct stat status = {};
        return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
    }

    FakePrograms cache_;
    LogCapture log_;
    const std::string dhcpDir_ = Name(8, HBL_FILE_DHCP_DIR);
    const std::string natDir_ = Name(8, HBL_FILE_NAT_DIR);
    const std::string natConf_ = Name(8, HBL_FILE_NAT_CONF);
};

TEST_F(Files, NamesFollowTheConfigurationDirectoryButDevicesDoNot) {
    static constexpr const char *PATHS[] = {"/conf/zelan8",
                                            "/conf/zelan8/dhcpd",
                                            "/conf/zelan8/nat",
                                            "refused",
                                            "/conf/zelan8/dhcpd/dhcpd.conf",
                                            "/conf/zelan8/dhcpd/dhcpd.conf.bak",
                                            "/conf/zelan8/dhcpd/dhcpd.leases",
                                            "/conf/zelan8/dhcpd/dhcpd.leases~",
                                            "/conf/zelan8/nat/nat.conf",
                                            "/conf/zelan8/nat/nat.conf.bak",
                                            "/conf/config",
                                            "/dev/zelan8",
                                            "refused"};
    cache_.Answer("CONFIGDIR", "/conf");
    for (uint32_t type = 0; type < std::size(PATHS); type++) {
        EXPECT_EQ(PATHS[type], Name(8, type));
    }
    EXPECT_TRUE(HBLNetCfgRemoveAnswer(nullptr, "CONFIGDIR"));
    EXPECT_EQ("/etc/orvane/zelan8", Name(8, HBL_FILE_VNET_DIR));
    cache_.Answer("CONFIGDIR", "/" + std::string(HBL_PATH_SIZE - 1 - 8, 'c'));  // exactly full with "/zelan8"
    EXPECT_EQ(HBL_PATH_SIZE - 1, Name(8, HBL_FILE_VNET_DIR).size());
    EXPECT_EQ("refused", Name(88, HBL_FILE_VNET_DIR));
    EXPECT_THAT(
        log_.Take(),
        testing::StartsWith("HBLGetFileName - Error formatting the file name for file type: 0from cD: /cc"));
}

TEST_F(Files, CreatedModesAreExactWhateverTheMaskAndWhatExistsIsKept) {
    const mode_t former = umask(077);
    for (const uint32_t type : {HBL_FILE_VNET_DIR, HBL_FILE_NAT_DIR, HBL_FILE_NAT_CONF}) {
        EXPECT_TRUE(HBLCreateFile(8, type, nullptr));
    }
    EXPECT_EQ(077u, umask(former));
    EXPECT_EQ(0755u, Mode(natDir_));
    EXPECT_EQ(0665u, Mode(natConf_));
    WriteFileText(natConf_, "kept");
    chmod(natConf_.c_str(), 0600);
    EXPECT_TRUE(HBLCreateFile(8, HBL_FILE_NAT_DIR, nullptr));
    EXPECT_TRUE(HBLCreateFile(8, HBL_FILE_NAT_CONF, nullptr));
    EXPECT_EQ("kept", ReadFileText(natConf_));
    EXPECT_EQ(0600u, Mode(natConf_));
}

TEST_F(Files, ParentsAreNotMadeAndTheReasonIsKept) {
    EXPECT_FALSE(HBLCreateFile(8, HBL_FILE_DHCP_DIR, nullptr));
    EXPECT_FALSE(HBLCreateFile(8, HBL_FILE_NAT_CONF, "/tmp/other"));
    EXPECT_EQ("HBLCreateFile - Cannot create Directory: " + dhcpDir_ +
                  " because of: No such file or directory\nHBLCreateFile - Invalid arguments\n",
              log_.Take());
    EXPECT_FALSE(HBLCreateFile(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, "/dev/null/below"));
    EXPECT_EQ(ENOTDIR, errno);
    ASSERT_TRUE(std::filesystem::create_directories(dhcpDir_ + "/full"));
    EXPECT_FALSE(HBLCreateFile(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, dhcpDir_.c_str()));
    EXPECT_EQ(EISDIR, errno);  // not that of the clean-up
}

TEST_F(Files, ExistsOnlyWithTheRightKind) {
    const std::string conf = Name(8, HBL_FILE_DHCP_CONF);
    ASSERT_TRUE(std::filesystem::create_directories(conf));
    EXPECT_FALSE(HBLFileExists(8, HBL_FILE_DHCP_CONF, nullptr));
    EXPECT_EQ("HBLFileExists - File/Directory/device of type: 4 and name: " + conf +
                  " is found but is not of valid type\n",
              log_.Take());
    EXPECT_TRUE(HBLFileExists(8, HBL_FILE_DHCP_DIR, nullptr));
    EXPECT_TRUE(HBLFileExists(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, conf.c_str()));
    rmdir(conf.c_str());
    ASSERT_EQ(0, symlink("/etc/passwd", conf.c_str()));
    EXPECT_TRUE(HBLFileExists(8, HBL_FILE_DHCP_CONF, nullptr));
    EXPECT_FALSE(HBLFileExists(8, HBL_FILE_NAT_DIR, nullptr));
    EXPECT_EQ("HBLFileExists - Cannot check for file or directory: " + natDir_ +
                  " , error: No such file or directory\n",
              log_.Take());
}

TEST_F(Files, HostConfigurationUnknownTypesAndLongPathsAreRefused) {
    WriteFileText(Name(8, HBL_FILE_HOST_CONFIG), "");
    const std::string fits = "/tmp" + std::string(255 - 4, '/');
    const std::string tooLong = fits + "/";
    EXPECT_TRUE(HBLFileExists(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, fits.c_str()));
    for (const auto function : {HBLFileExists, HBLCreateFile, HBLRemoveFile}) {
        EXPECT_FALSE(function(8, HBL_FILE_HOST_CONFIG, nullptr));
        EXPECT_FALSE(function(8, 12, nullptr));
        EXPECT_EQ("", log_.Take());
        EXPECT_FALSE(function(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, tooLong.c_str()));
        EXPECT_THAT(log_.Take(), testing::EndsWith(" - Custom file name " + tooLong +
                                                   " is longer than allowed 256 characters\n"));
    }
    EXPECT_EQ(0, access(Name(8, HBL_FILE_HOST_CONFIG).c_str(), F_OK));
}

TEST_F(Files, RemovingWhatIsGoneSucceedsAndWhatIsFullDoesNot) {
    HBLLogSetMask(LOG_ERR | LOG_WRN);
    EXPECT_TRUE(HBLRemoveFile(8, HBL_FILE_NAT_CONF, nullptr));
    EXPECT_TRUE(HBLRemoveFile(8, HBL_FILE_NAT_DIR, nullptr));
    ASSERT_TRUE(std::filesystem::create_directories(dhcpDir_));
    EXPECT_FALSE(HBLRemoveFile(8, HBL_FILE_VNET_DIR, nullptr));
    EXPECT_EQ("HBLRemoveFile - File " + natConf_ + " does not exist\nHBLRemoveFile - Directory " + natDir_ +
                  " does not exist\nHBLRemoveFile - Cannot delete Directory: " + Name(8, HBL_FILE_VNET_DIR) +
                  " because of: Directory not empty\n",
              log_.Take());
    EXPECT_TRUE(HBLRemoveFile(8, HBL_FILE_DHCP_DIR, nullptr));
    EXPECT_TRUE(HBLRemoveFile(8, HBL_FILE_VNET_DIR, nullptr));
}

TEST_F(Files, CopyTakesTheWholeContentOrNamesTheFileAndTheReason) {
    const std::string source = cache_.Path("source"), copy = cache_.Path("copy"), folder = cache_.Path("run");
    for (const size_t size : {size_t{1024}, size_t{5000}, size_t{0}}) {
        WriteFileText(source, std::string(size, 'x'));
        EXPECT_TRUE(HBLCopyFile(source.c_str(), copy.c_str()));
        EXPECT_EQ(std::string(size, 'x'), ReadFileText(copy)) << size;
    }
    EXPECT_EQ(0665u, Mode(copy));
    WriteFileText(source, std::string(5000, 'x'));
    {
        const FileSizeLimit limit(1500);  // the second block goes in half
        EXPECT_FALSE(HBLCopyFile(source.c_str(), copy.c_str()));
    }
    EXPECT_FALSE(HBLCopyFile(folder.c_str(), copy.c_str()));
    EXPECT_FALSE(HBLCopyFile("/none", copy.c_str()));
    EXPECT_EQ("HBLCopyFile - Writing to destination file: " + copy +
                  " failed, error: File too large\n"
                  "HBLCopyFile - Reading from source file: " +
                  folder +
                  " failed, error: Is a directory\n"
                  "HBLCopyFile - Could not open source file: /none, error: No such file or directory\n",
              log_.Take());
}

}  // namespace
