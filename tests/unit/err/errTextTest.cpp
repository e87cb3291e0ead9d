#include "lib/err/errText.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <thread>
#include <vector>

TEST(ErrText, SameNumberGivesTheSameAddressAndLeadsBackToIt) {
    for (int number : {0, ENOENT, EDOM, 99999, -7}) {
        const char *text = Err_ErrnoText(number);
        EXPECT_STREQ(text, strerror(number));
        EXPECT_EQ(Err_ErrnoText(number), text);
        EXPECT_EQ(Err_TextToErrno(text), number);
    }
}

TEST(ErrText, EqualTextAtAnotherAddressIsNotRecognised) {
    const std::string copy = Err_ErrnoText(ENOENT);
    EXPECT_EQ(Err_TextToErrno(copy.c_str()), -1);
}

TEST(ErrText, LeavesErrnoAlone) {
    errno = EXDEV;
    const char *text = Err_ErrnoText(EMLINK);
    EXPECT_EQ(errno, EXDEV);
    EXPECT_STRNE(text, Err_LastErrnoText());
    EXPECT_EQ(Err_TextToErrno(Err_LastErrnoText()), EXDEV);
}

TEST(ErrText, ThreadsAgreeOnOneText) {
    const char *seen[4] = {};
    std::vector<std::thread> threads;
    for (const char *&mine : seen) {
        threads.emplace_back([&mine] {
            mine = Err_ErrnoText(EKEYREJECTED);
            EXPECT_EQ(Err_TextToErrno(mine), EKEYREJECTED);
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    for (const char *text : seen) {
        EXPECT_EQ(text, seen[0]);
    }
}
