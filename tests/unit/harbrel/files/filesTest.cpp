#include "lib/harbrel/files/files.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <string>

#include "tests/support/fakePrograms.h"
#include "tests/support/fileSizeLimit.h"

namespace {

class Files : public FakeProgramsTest {
  protected:
    static std::string Name(uint32_t vnet, uint32_t type) {
        char path[HBL_PATH_SIZE] = "unset";
        return HBLGetFileName(vnet, type, path, sizeof path) ? path : "refused";
    }
    static mode_t Mode(const std::string &path) {
        struct stat status = {};
        return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
    }

    const std::string natDir_ = Name(8, HBL_FILE_NAT_DIR);
    const std::string natConf_ = Name(8, HBL_FILE_NAT_CONF);
};

TEST_F(Files, NameThatDoesNotFitIsRefused) {
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
    std::filesystem::remove(natConf_);
    std::filesystem::create_directory(natConf_);
    EXPECT_FALSE(HBLCreateFile(8, HBL_FILE_NAT_CONF, nullptr));
    EXPECT_TRUE(std::filesystem::is_empty(natDir_)) << "an empty folder in the way is taken away";
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
    // The second block goes in half.
    EXPECT_FALSE(OnFullDisk(1500, [&] { return HBLCopyFile(source.c_str(), copy.c_str()); }));
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
