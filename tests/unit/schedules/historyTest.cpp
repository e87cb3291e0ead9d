#include "tests/schedules/history.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

// Words as in "w1:10-20", a write of 1 from 10 to 20, and "r1:30-40"; "r:30-40" finds nothing.
std::string Why(const std::string &words, bool takesLock) {
    std::vector<Operation> operations;
    std::istringstream stream(words);
    for (std::string word; stream >> word;) {
        Operation operation = {0, word[0] == 'w', NO_VALUE, 0, 0};
        sscanf(word.c_str() + 1, "%u", &operation.value);
        sscanf(word.c_str() + word.find(':'), ":%ld-%ld", &operation.begin, &operation.end);
        operations.push_back(operation);
    }
    return WhyImpossible(operations, takesLock);
}

TEST(History, OnlyWhatSomeOrderExplainsIsPossible) {
    const std::string gone = " was there before and after";
    const std::string twice = "w1:10-50 r1:15-16 w2:20-25 r2:30-31 r1:60-61";
    const std::pair<std::string, std::string> rows[] = {
        {"r0:1-2", ""},
        {"w1:10-20 r1:30-40", ""},
        {"w1:10-20 r0:15-16 r1:17-18", ""},
        {"w1:10-20 r1:15-16 r0:17-18", "value 1 is gone: value 0" + gone},
        {"w1:10-20 r0:21-22", "value 1 is gone: value 0" + gone},
        {"w1:10-20 w2:15-25 r1:30-31", ""},
        {"w1:10-20 w2:15-25 r1:30-31 r2:32-33", "value 1 is found again after value 2"},
        {"w1:10-20 w2:21-25 r1:30-31", "value 2 is gone: value 1" + gone},
        {"r1:1-9 w1:10-20", "value 1 is found before it is written"},
        {"w1:10-20 r2:30-31", "value 2 was refused and is found"},
        {"w1:10-20 r:15-30", "nothing is found"},
        {twice, "value 1 is found again after value 2"},
    };
    for (const auto &[operations, reason] : rows) {
        EXPECT_EQ(reason, Why(operations, true)) << operations;
    }
    EXPECT_EQ("", Why(twice, false) + Why("w1:10-20 r:15-30", false));
    EXPECT_EQ("nothing is found", Why("w1:10-20 r:21-30", false));
}

}  // namespace
