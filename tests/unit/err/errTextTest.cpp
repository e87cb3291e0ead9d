#include "lib/err/errText.h"

#include <gtest/gtest.h>

#include <array>
#include <barrier>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

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

// Whoever comes second takes the first one's text.
TEST(ErrText, ThreadsGetOneText) {
    constexpr int NUMBERS = 200;
    std::array<std::vector<const char *>, 4> texts;
    std::barrier<> start(texts.size());
    std::vector<std::jthread> threads;
    for (std::vector<const char *> &seen : texts) {
        threads.emplace_back([&start, &seen] {
            start.arrive_and_wait();
            for (int number = 1000; number < 1000 + NUMBERS; number++) {
                seen.push_back(Err_ErrnoText(number));
            }
        });
    }
    threads.clear();
    EXPECT_EQ(texts[0].size(), static_cast<size_t>(NUMBERS));
    EXPECT_TRUE(texts[0] == texts[1] && texts[0] == texts[2] && texts[0] == texts[3]);
}
