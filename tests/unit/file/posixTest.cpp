#include "lib/file/posix.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <string>

TEST(PosixWrappers, RefuseAPathThatDoesNotConvert) {
    const std::string bad = "/tmp/caf\xE9";
    const char *path = bad.c_str();
    char program[] = "true";
    std::string badArgument = "\xE9";
    char *arguments[] = {program, badArgument.data(), nullptr};
    const std::function<bool()> failures[] = {
        [&] { return Posix_Fopen(path, "w") == nullptr; },
        [&] { return Posix_Open(path, O_CREAT | O_RDWR, 0600) == -1; },
        [&] { return Posix_Link(path, "/tmp/absent") == -1; },
        [&] { return Posix_Rename("/tmp/absent", path) == -1; },
        [&] { return Posix_System(path) == -1; },
        [&] { return Posix_Execv("/bin/false", arguments) == -1; },
        [&] { return Posix_Getenv("\xE9") == nullptr; },
    };
    for (const auto &fails : failures) {
        errno = 0;
        EXPECT_TRUE(fails()) << &fails - failures;
        EXPECT_EQ(errno, EINVAL) << &fails - failures;
    }
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
