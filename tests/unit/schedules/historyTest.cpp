#include "tests/schedules/history.h"

#include <gtest/gtest.h>

namespace {

Operation Wrote(uint32_t value, int64_t begin, int64_t end) {
    return {0, true, value, begin, end};
}

Operation Read(uint32_t value, int64_t begin, int64_t end) {
    return {0, false, value, begin, end};
}

TEST(History, OnlyWhatSomeOrderExplainsIsPossible) {
    const Operation first = Wrote(1, 10, 20);
    const struct {
        const char *what;
        std::vector<Operation> operations;
        std::string reason;
    } rows[] = {
        {"nothing written", {Read(FIRST_VALUE, 1, 2)}, ""},
        {"written before", {first, Read(1, 30, 40)}, ""},
        {"old or new meanwhile", {first, Read(FIRST_VALUE, 15, 16), Read(1, 17, 18)}, ""},
        {"new, then old",
         {first, Read(1, 15, 16), Read(FIRST_VALUE, 17, 18)},
         "value 1 is gone: value 0 was there before and after"},
        {"lost", {first, Read(FIRST_VALUE, 21, 22)}, "value 1 is gone: value 0 was there before and after"},
        {"either of two at once", {first, Wrote(2, 15, 25), Read(1, 30, 31)}, ""},
        {"both of two at once",
         {first, Wrote(2, 15, 25), Read(1, 30, 31), Read(2, 32, 33)},
         "value 1 is found again after value 2"},
        {"the first of two",
         {first, Wrote(2, 21, 25), Read(1, 30, 31)},
         "value 2 is gone: value 1 was there before and after"},
        {"not yet written", {Read(1, 1, 9), first}, "value 1 is found before it is written"},
        {"refused", {first, Read(2, 30, 31)}, "value 2 was refused and is found"},
        {"nothing beside a write", {first, Read(NO_VALUE, 15, 30)}, "nothing is found"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(row.reason, WhyImpossible(row.operations, true));
    }
    const std::vector<Operation> twice = {Wrote(1, 10, 50), Read(1, 15, 16), Wrote(2, 20, 25),
                                          Read(2, 30, 31), Read(1, 60, 61)};
    EXPECT_EQ("value 1 is found again after value 2", WhyImpossible(twice, true));
    EXPECT_EQ("", WhyImpossible(twice, false));
    EXPECT_EQ("", WhyImpossible({first, Read(NO_VALUE, 15, 30)}, false));
    EXPECT_EQ("nothing is found", WhyImpossible({first, Read(NO_VALUE, 21, 30)}, false));
}

}  // namespace
