#include "lib/string/tokens.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "lib/misc/owners.h"

namespace {

TEST(StrToNumber, AcceptsWhatFitsIn32BitsSignedOrUnsigned) {
    const struct {
        const char *text;
        bool converts;
        uint32_t value;
    } cases[] = {
        {"0", true, 0},
        {"42", true, 42},
        {"0x1F", true, 31},
        {"0X1f", true, 31},
        {"-0x10", true, 0xFFFFFFF0u},
        {"017", true, 15},
        {"+7", true, 7},
        {" 7", true, 7},
        {"-1", true, 0xFFFFFFFFu},
        {"4294967295", true, 0xFFFFFFFFu},
        {"-2147483648", true, 0x80000000u},
        {"4294967296", false, 0},
        {"-2147483649", false, 0},
        {"18446744073709551615", false, 0},
        {"-18446744073709551615", false, 0},
        {"99999999999999999999", false, 0},
        {"", false, 0},
        {" ", false, 0},
        {"-", false, 0},
        {"0x", false, 0},
        {"08", false, 0},
        {"0b1", false, 0},
        {"7 ", false, 0},
        {"7a", false, 0},
        {"1.5", false, 0},
    };
    for (const auto &row : cases) {
        constexpr uint32_t UNTOUCHED = 0x5A5A5A5Au;
        uint32_t value = UNTOUCHED;
        int32_t signedValue = UNTOUCHED;
        EXPECT_EQ(StrToUint(&value, row.text), row.converts) << '"' << row.text << '"';
        EXPECT_EQ(StrToInt(&signedValue, row.text), row.converts) << '"' << row.text << '"';
        const uint32_t expected = row.converts ? row.value : UNTOUCHED;
        EXPECT_EQ(value, expected) << '"' << row.text << '"';
        EXPECT_EQ(static_cast<uint32_t>(signedValue), expected) << '"' << row.text << '"';
    }
}

TEST(GetNextToken, StopsOnTheDelimiterBehindTheToken) {
    const struct {
        const char *text;
        const char *delimiters;
        std::vector<std::string> tokens;
        std::vector<unsigned> indexes;  // behind each call, the one without a token included
    } cases[] = {
        {"a  bc ", " ", {"a", "bc"}, {1, 5, 6}},
        {",;x;,", ",;", {"x"}, {3, 5}},
        {"", " ", {}, {0}},
        {"   ", " ", {}, {3}},
        {"whole", "", {"whole"}, {5, 5}},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.text);
        unsigned index = 0;
        std::vector<std::string> tokens;
        std::vector<unsigned> indexes;
        for (;;) {
            const MallocString token(GetNextToken(&index, row.text, row.delimiters));
            indexes.push_back(index);
            if (token == nullptr) {
                break;
            }
            tokens.emplace_back(token.get());
        }
        EXPECT_EQ(tokens, row.tokens);
        EXPECT_EQ(indexes, row.indexes);
    }
}

TEST(GetNextNumberToken, MovesBehindATokenThatDoesNotConvert) {
    unsigned index = 0;
    uint32_t value = 9;
    EXPECT_FALSE(GetNextUintToken(&value, &index, "x1 -2", " "));
    EXPECT_EQ(value, 9u);
    EXPECT_EQ(index, 2u);
    int32_t signedValue = 0;
    EXPECT_TRUE(GetNextIntToken(&signedValue, &index, "x1 -2", " "));
    EXPECT_EQ(signedValue, -2);
    EXPECT_FALSE(GetNextIntToken(&signedValue, &index, "x1 -2", " "));
}

}  // namespace
