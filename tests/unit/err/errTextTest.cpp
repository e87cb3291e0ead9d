#include "lib/err/errText.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

TEST(ErrText, SameNumberGivesTheSameAddressAndLeadsBackToIt) {
    for (int number : {0, ENOENT, 99999, -7}) {
        errno = EXDEV;
        const char *text = Err_ErrnoText(number);
        EXPECT_EQ(Err_TextToErrno(Err_LastErrnoText()), EXDEV) << "errno is left as it was";
        EXPECT_STREQ(text, strerror(number));
        EXPECT_EQ(Err_ErrnoText(number), text);
        EXPECT_EQ(Err_TextToErrno(text), number);
        EXPECT_EQ(Err_TextToErrno(std::string(text).c_str()), -1) << "an equal text at another address";
    }
}
