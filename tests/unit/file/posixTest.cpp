#include "lib/file/posix.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <functional>
#include <string>

#include "lib/misc/owners.h"
#include "tests/support/tempFolder.h"

namespace {

TEST(PosixWrappers, RefuseAPathThatDoesNotConvert) {
    const std::string bad = "/tmp/caf\xE9";
    const char *path = bad.c_str();
    const char good[] = "/tmp/absent";
    struct stat status;
    char program[] = "true";
    std::string badArgument = "\xE9";
    char *arguments[] = {program, badArgument.data(), nullptr};
    const struct {
        const char *name;
        std::function<bool()> fails;
    } cases[] = {
        {"unlink", [&] { return Posix_Unlink(path) == -1; }},
        {"fopen", [&] { return Posix_Fopen(path, "w") == nullptr; }},
        {"open", [&] { return Posix_Open(path, O_CREAT | O_RDWR, 0600) == -1; }},
        {"link", [&] { return Posix_Link(path, good) == -1; }},
        {"rename from", [&] { return Posix_Rename(path, good) == -1; }},
        {"rename to", [&] { return Posix_Rename(good, path) == -1; }},
        {"stat", [&] { return Posix_Stat(path, &status) == -1; }},
        {"lstat", [&] { return Posix_Lstat(path, &status) == -1; }},
        {"opendir", [&] { return Posix_Opendir(path) == nullptr; }},
        {"realpath", [&] { return Posix_Realpath(path, nullptr) == nullptr; }},
        {"mkdir", [&] { return Posix_Mkdir(path, 0700) == -1; }},
        {"system", [&] { return Posix_System(path) == -1; }},
        {"execv path", [&] { return Posix_Execv(path, arguments) == -1; }},
        {"execv argument", [&] { return Posix_Execv("/bin/true", arguments) == -1; }},
        {"mkfifo", [&] { return Posix_Mkfifo(path, 0600) == -1; }},
        {"mknod", [&] { return Posix_Mknod(path, S_IFIFO | 0600, 0) == -1; }},
        {"access", [&] { return Posix_Access(path, F_OK) == -1; }},
        {"rmdir", [&] { return Posix_Rmdir(path) == -1; }},
        {"getenv", [&] { return Posix_Getenv("\xE9") == nullptr; }},
    };
    for (const auto &row : cases) {
        errno = 0;
        EXPECT_TRUE(row.fails()) << row.name;
        EXPECT_EQ(errno, EINVAL) << row.name;
    }
}

TEST(PosixWrappers, PassResultAndErrnoOfTheCall) {
    const TempFolder folder;
    const std::string path = folder / "caf\xC3\xA9";
    errno = 0;
    EXPECT_EQ(Posix_Access(path.c_str(), F_OK), -1);
    EXPECT_EQ(errno, ENOENT);
    errno = 77;
    const FileDescriptor fd(Posix_Open(path.c_str(), O_CREAT | O_WRONLY, 0640));
    ASSERT_TRUE(fd);
    struct stat status;
    ASSERT_EQ(Posix_Stat(path.c_str(), &status), 0);
    EXPECT_EQ(errno, 77) << "a call that succeeds leaves errno alone";
    EXPECT_EQ(status.st_mode & 0777 & ~0640u, 0u);
    const std::string moved = folder / "moved";
    EXPECT_EQ(Posix_Rename(path.c_str(), moved.c_str()), 0);
    const MallocString real(Posix_Realpath((folder / "./moved").c_str(), nullptr));
    EXPECT_STREQ(real.get(), moved.c_str());
    char resolved[PATH_MAX];
    EXPECT_EQ(Posix_Realpath(moved.c_str(), resolved), resolved);
    EXPECT_EQ(resolved, moved);
}

TEST(PosixGetenv, KeepsAnOldValueThroughOneChange) {
    setenv("POSIX_TEST", "first", 1);
    const char *first = Posix_Getenv("POSIX_TEST");
    ASSERT_STREQ(first, "first");
    EXPECT_EQ(Posix_Getenv("POSIX_TEST"), first) << "the same value is the same text";
    setenv("POSIX_TEST", "second", 1);
    const char *second = Posix_Getenv("POSIX_TEST");
    EXPECT_STREQ(second, "second");
    EXPECT_STREQ(first, "first");
    setenv("POSIX_TEST", "third", 1);
    EXPECT_STREQ(Posix_Getenv("POSIX_TEST"), "third");
    EXPECT_STREQ(second, "second");
    unsetenv("POSIX_TEST");
    EXPECT_EQ(Posix_Getenv("POSIX_TEST"), nullptr);
}

// The current encoding is decided once, so this case needs a process of its own.
TEST(PosixDeathTest, CreatesNamesInTheCurrentEncoding) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto createInLatin1 = [] {
        setenv("G_FILENAME_ENCODING", "ISO-8859-1", 1);
        setenv("POSIX_TEST", "caf\xE9", 1);
        char folder[] = "/tmp/posixTest.XXXXXX";
        const std::string base = mkdtemp(folder);
        bool good = Posix_Mkdir((base + "/caf\xC3\xA9").c_str(), 0700) == 0;
        good = rmdir((base + "/caf\xE9").c_str()) == 0 && good;
        good = rmdir(folder) == 0 && good;
        good = std::string(Posix_Getenv("POSIX_TEST")) == "caf\xC3\xA9" && good;
        _exit(good ? 0 : 1);
    };
    EXPECT_EXIT(createInLatin1(), testing::ExitedWithCode(0), "");
}

}  // namespace
