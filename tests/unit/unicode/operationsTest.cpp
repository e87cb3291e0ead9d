#include <gtest/gtest.h>

#include <string>

#include "lib/misc/owners.h"
#include "lib/unicode/caseFold.h"
#include "lib/unicode/unicode.h"

namespace {

TEST(UnicodeOperations, PinRangesToTheText) {
    const struct {
        ptrdiff_t start;
        ptrdiff_t length;
        const char *part;
        const char *replaced;
    } cases[] = {
        {0, -1, "abcde", "XY"}, {0, 2, "ab", "XYcde"},   {3, 99, "de", "abcXY"}, {5, 1, "", "abcdeXY"},
        {99, 1, "", "abcdeXY"}, {-1, -1, "", "abcdeXY"}, {2, 0, "", "abXYcde"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(testing::Message() << row.start << ", " << row.length);
        const MallocString part(Unicode_Substr("abcde", row.start, row.length));
        EXPECT_STREQ(part.get(), row.part);
        const MallocString replaced(Unicode_ReplaceRange("abcde", row.start, row.length, "-XY-", 1, 2));
        EXPECT_STREQ(replaced.get(), row.replaced);
    }
}

TEST(UnicodeOperations, FindTheFirstAndTheLastMatchInARange) {
    const struct {
        ptrdiff_t start;
        ptrdiff_t length;
        const char *sought;
        ptrdiff_t first;
        ptrdiff_t last;
    } cases[] = {
        {0, -1, "ab", 0, 6},  {1, -1, "ab", 3, 6}, {0, 7, "ab", 0, 3}, {1, 3, "ab", -1, -1},
        {0, -1, "x", -1, -1}, {4, 2, "", 4, 4},    {-1, -1, "", 8, 8}, {0, -1, "abcabcabc", -1, -1},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(testing::Message() << row.sought << " from " << row.start << ", " << row.length);
        const char *text = "abcabcab";
        EXPECT_EQ(Unicode_FindSubstrInRange(text, row.start, row.length, row.sought, 0, -1), row.first);
        EXPECT_EQ(Unicode_FindLastSubstrInRange(text, row.start, row.length, row.sought, 0, -1), row.last);
    }
    EXPECT_EQ(Unicode_FindSubstrInRange("abcabc", 0, -1, "xbcx", 1, 2), 1);
}

TEST(UnicodeCompareRange, OrdersByCodePoint) {
    const struct {
        const char *text;
        const char *other;
        int order;
        int orderIgnoringCase;
    } cases[] = {
        {"", "", 0, 0},
        {"a", "", 1, 1},
        {"a", "ab", -1, -1},
        {"B", "a", -1, 1},
        {"s\xC3\x9F", "S\xE1\xBA\x9E", 1, 0},  // small and capital sharp s
        {"\xCE\xA3", "\xCF\x82", -1, 0},       // capital and final sigma
        // U+FFE6 lies above the surrogates and below U+10000.
        {"\xEF\xBF\xA6", "\xF0\x90\x80\x80", -1, -1},
        {"\xF0\x90\x80\x81", "\xF0\x90\x80\x80", 1, 1},
        {"\xF0\x90\x80\x80", "z", 1, 1},
        {"a", "\xFF", -1, -1},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(testing::Message() << row.text << " and " << row.other);
        EXPECT_EQ(Unicode_CompareRange(row.text, 0, -1, row.other, 0, -1, false), row.order);
        EXPECT_EQ(Unicode_CompareRange(row.text, 0, -1, row.other, 0, -1, true), row.orderIgnoringCase);
    }
    EXPECT_EQ(Unicode_CompareRange("xxAB", 2, -1, "abyy", 0, 2, true), 0);
    EXPECT_EQ(Unicode_CompareRange("\xC3\xA9", 1, -1, "", 0, -1, false), -1)
        << "a range that cuts a character";
}

TEST(CaseFold, MapsOneUnitToOne) {
    const struct {
        uint16_t unit;
        uint16_t folded;
    } cases[] = {
        {'A', 'a'},       {'a', 'a'},       {'[', '['},       {0x00D7, 0x00D7}, {0x0130, 0x0130},
        {0x0178, 0x00FF}, {0x017F, 's'},    {0x1E9E, 0x00DF}, {0x1F88, 0x1F80}, {0x212A, 'k'},
        {0xAB70, 0x13A0}, {0xFF21, 0xFF41}, {0xD801, 0xD801}, {0xFFFF, 0xFFFF}, {0x0149, 0x0149},
    };
    for (const auto &row : cases) {
        EXPECT_EQ(CaseFold_Unit(row.unit), row.folded) << std::hex << row.unit;
    }
}

TEST(UnicodeOperations, JoinUpToTheNull) {
    const MallocString joined(Unicode_Join("a", "", "bc", static_cast<char *>(nullptr)));
    EXPECT_STREQ(joined.get(), "abc");
    EXPECT_EQ(Unicode_Join(nullptr, "a", static_cast<char *>(nullptr)), nullptr);
    EXPECT_EQ(Unicode_Duplicate(nullptr), nullptr);
    const MallocString formatted(Unicode_Format("%d-%s", 1, "x"));
    EXPECT_STREQ(formatted.get(), "1-x");
}

}  // namespace
