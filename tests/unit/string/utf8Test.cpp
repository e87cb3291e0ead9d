#include "lib/string/utf8.h"

#include <gtest/gtest.h>

#include <string>

// The first and the last code point of each length, and the neighbours of what is none.
TEST(Utf8, EncodesAndDecodesUpToTheEdges) {
    const std::pair<uint32_t, std::string> cases[] = {
        {0x7F, "\x7F"},
        {0x80, "\xC2\x80"},
        {0x7FF, "\xDF\xBF"},
        {0x800, "\xE0\xA0\x80"},
        {0xFFF, "\xE0\xBF\xBF"},
        {0xD000, "\xED\x80\x80"},
        {0xD7FF, "\xED\x9F\xBF"},
        {0xE000, "\xEE\x80\x80"},
        {0xFFFF, "\xEF\xBF\xBF"},
        {0x10000, "\xF0\x90\x80\x80"},
        {0x3FFFF, "\xF0\xBF\xBF\xBF"},
        {0x100000, "\xF4\x80\x80\x80"},
        {0x10FFFF, "\xF4\x8F\xBF\xBF"},
    };
    for (const auto &[codePoint, bytes] : cases) {
        char encoded[UTF8_MAX_BYTES];
        EXPECT_EQ(std::string(encoded, Utf8_Encode(codePoint, encoded)), bytes) << codePoint;
        EXPECT_EQ(Utf8_PromisedBytes(bytes[0]), bytes.size()) << codePoint;
        const char *at = bytes.data();
        EXPECT_EQ(Utf8_Decode(&at, at + bytes.size()), codePoint);
        EXPECT_EQ(at, bytes.data() + bytes.size());
        EXPECT_EQ(Utf8_LengthWithoutCutCharacter(bytes.data(), bytes.size() - 1), 0u) << codePoint;
    }
    for (const uint32_t codePoint : {0xD800u, 0xDFFFu, 0x110000u, UTF8_INVALID}) {
        char encoded[UTF8_MAX_BYTES];
        EXPECT_EQ(Utf8_Encode(codePoint, encoded), 0u) << codePoint;
    }
}

TEST(Utf8, RefusesWhatIsNoCharacterAndGoesOnBehindIt) {
    const std::pair<std::string, size_t> cases[] = {
        // the bytes, and how many of them belong to the refused start
        {"\x80", 1},         {"\xC1\xBF", 1},         {"\xE0\x9F\xBF", 1},     {"\xED\xA0\x80", 1},
        {"\xF0\x8F\xBF", 1}, {"\xF4\x90\x80\x80", 1}, {"\xF5\x80\x80\x80", 1}, {"\xE2\x82", 2},
        {"\xE2\x82z", 2},    {"\xF0\x9F\x98\xC0", 3}, {"\xC2\xC0", 1},         {"\xE0\xC0\x80", 1},
        {"\xF0\xC0\x80", 1},
    };
    for (const auto &[bytes, refused] : cases) {
        const char *at = bytes.data();
        EXPECT_EQ(Utf8_Decode(&at, at + bytes.size()), UTF8_INVALID);
        EXPECT_EQ(static_cast<size_t>(at - bytes.data()), refused) << testing::PrintToString(bytes);
    }
    for (const char noLead : {'\xBF', '\xF8', 'a'}) {
        EXPECT_EQ(Utf8_PromisedBytes(noLead), 1u);
    }
}
