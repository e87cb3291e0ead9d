#include "lib/string/tokens.h"

#include <gtest/gtest.h>

#include "lib/misc/owners.h"

TEST(StrToNumber, AcceptsWhatFitsIn32BitsSignedOrUnsigned) {
    const std::pair<const char *, uint32_t> cases[] = {
        {"0", 0},   {"0X1f", 31},        {"-0x10", 0xFFFFFFF0u},      {"017", 15},
        {" +7", 7}, {"-1", 0xFFFFFFFFu}, {"4294967295", 0xFFFFFFFFu}, {"-2147483648", 0x80000000u},
    };
    for (const auto &[text, expected] : cases) {
        uint32_t value = 9;
        int32_t signedValue = 9;
        EXPECT_TRUE(StrToUint(&value, text) && StrToInt(&signedValue, text)) << text;
        EXPECT_EQ(value, expected) << text;
        EXPECT_EQ(static_cast<uint32_t>(signedValue), expected) << text;
    }
}

TEST(StrToNumber, RefusesWhatIsLeftOverOrTooLarge) {
    for (const char *text : {"4294967296", "-2147483649", "18446744073709551615", "-18446744073709551615",
                             "99999999999999999999", "", " ", "-", "0x", "08", "0b1", "7 ", "1.5"}) {
        uint32_t value = 9;
        int32_t signedValue = 9;
        EXPECT_FALSE(StrToUint(&value, text) || StrToInt(&signedValue, text)) << '"' << text << '"';
        EXPECT_TRUE(value == 9 && signedValue == 9) << '"' << text << '"';
    }
}

TEST(GetNextToken, StopsOnTheDelimiterBehindTheToken) {
    const struct {
        const char *text, *delimiters;
        unsigned start;
        const char *token;  // null: none was left
        unsigned end;
    } cases[] = {
        {"a  bc ", " ", 0, "a", 1},   {"a  bc ", " ", 1, "bc", 5}, {"a  bc ", " ", 5, nullptr, 6},
        {",;x;,", ",;", 0, "x", 3},   {"", " ", 0, nullptr, 0},    {"   ", " ", 0, nullptr, 3},
        {"whole", "", 0, "whole", 5},
    };
    for (const auto &row : cases) {
        unsigned index = row.start;
        const MallocString token(GetNextToken(&index, row.text, row.delimiters));
        EXPECT_STREQ(token.get(), row.token) << row.text << row.start;
        EXPECT_EQ(index, row.end) << row.text << row.start;
    }
}
