#include <gtest/gtest.h>

#include "lib/misc/owners.h"
#include "lib/unicode/unicode.h"

TEST(UnicodeOperations, MakeTextsOfOthers) {
    const MallocString copy(Unicode_Duplicate("caf\xC3\xA9"));
    EXPECT_STREQ(copy.get(), "caf\xC3\xA9");
    EXPECT_EQ(Unicode_Duplicate(nullptr), nullptr);
    const MallocString joined(Unicode_Join(copy.get(), "", "-", copy.get(), nullptr));
    EXPECT_STREQ(joined.get(), "caf\xC3\xA9-caf\xC3\xA9");
    EXPECT_EQ(Unicode_Join(nullptr, "x", nullptr), nullptr);
    const MallocString formatted(Unicode_Format("%s %d", "x", 7));
    EXPECT_STREQ(formatted.get(), "x 7");
}

TEST(UnicodeOperations, PinRangesToTheText) {
    const std::pair<std::pair<ptrdiff_t, ptrdiff_t>, std::pair<const char *, const char *>> cases[] = {
        {{0, -1}, {"abcde", "XY"}}, {{0, 2}, {"ab", "XYcde"}},   {{3, 99}, {"de", "abcXY"}},
        {{99, 1}, {"", "abcdeXY"}}, {{-1, -1}, {"", "abcdeXY"}}, {{2, 0}, {"", "abXYcde"}},
    };
    for (const auto &[range, result] : cases) {
        const MallocString part(Unicode_Substr("abcde", range.first, range.second));
        EXPECT_STREQ(part.get(), result.first);
        const MallocString replaced(Unicode_ReplaceRange("abcde", range.first, range.second, "-XY-", 1, 2));
        EXPECT_STREQ(replaced.get(), result.second);
    }
}

TEST(UnicodeOperations, FindTheFirstAndTheLastMatchInARange) {
    const auto find = [](ptrdiff_t start, ptrdiff_t length, const char *sought) {
        return std::pair(Unicode_FindSubstrInRange("abcabcab", start, length, sought, 0, -1),
                         Unicode_FindLastSubstrInRange("abcabcab", start, length, sought, 0, -1));
    };
    const std::pair<ptrdiff_t, ptrdiff_t> ends(0, 6), same(3, 3), none(-1, -1);
    EXPECT_EQ(find(0, -1, "ab"), ends);
    EXPECT_EQ(find(1, 6, "ab"), same);
    EXPECT_EQ(find(1, 3, "ab"), none);
    EXPECT_EQ(Unicode_FindSubstrInRange("abcabc", 0, -1, "xbcx", 1, 2), 1);
}

TEST(UnicodeCompareRange, OrdersByCodePoint) {
    const struct {
        const char *text, *other;
        int order, orderIgnoringCase;
    } cases[] = {
        {"", "", 0, 0},
        {"a", "ab", -1, -1},
        {"B", "a", -1, 1},
        {"s\xC3\x9F", "S\xE1\xBA\x9E", 1, 0},  // small and capital sharp s
        {"\xCE\xA3", "\xCF\x82", -1, 0},       // capital and final sigma
        // U+FFE6 lies above the surrogates and below U+10000.
        {"\xEF\xBF\xA6", "\xF0\x90\x80\x80", -1, -1},
        {"a", "\xFF", -1, -1},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(testing::Message() << row.text << " and " << row.other);
        EXPECT_EQ(Unicode_CompareRange(row.text, 0, -1, row.other, 0, -1, false), row.order);
        EXPECT_EQ(Unicode_CompareRange(row.text, 0, -1, row.other, 0, -1, true), row.orderIgnoringCase);
    }
    EXPECT_EQ(Unicode_CompareRange("xxAB", 2, -1, "abyy", 0, 2, true), 0);
}
