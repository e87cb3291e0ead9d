#include "lib/unicode/codeset.h"

#include <gtest/gtest.h>

#include <string>

#include "lib/unicode/codesetLayers.h"
#include "lib/unicode/ianaTable.h"

namespace {

using namespace std::string_literals;

struct Layer {
    const char *name;
    bool (*convert)(StringEncoding from, const char *bytes, size_t size, StringEncoding to, CodeSetMode mode,
                    ByteBuffer *out);
    bool (*isValid)(StringEncoding encoding, const char *bytes, size_t size);
};

class CodeSetLayer : public testing::TestWithParam<Layer> {
  protected:
    void SetUp() override { ASSERT_TRUE(CodeSetIcu_Init("/nonexistent")); }

    static std::string Convert(StringEncoding from, const std::string &bytes, StringEncoding to,
                               CodeSetMode mode) {
        ByteBuffer out;
        return GetParam().convert(from, bytes.data(), bytes.size(), to, mode, &out)
                   ? std::string(out.data.get(), out.size)
                   : "failed";
    }
};

TEST_P(CodeSetLayer, ConvertsThereAndBackWithAnyByteOrder) {
    const std::string text = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
    const struct {
        const char *name;
        std::string utf8, bytes;
    } cases[] = {
        {"UTF-16BE", text, "\0a\0\xE9\x20\xAC\xD8\x3D\xDE\0"s},
        {"UTF-16", text, "\xFF\xFE\x61\0\xE9\0\xAC\x20\x3D\xD8\0\xDE"s},
        {"ISO-8859-15", "\xE2\x82\xAC", "\xA4"},
        {"ISO-2022-JP", "\xE3\x81\x82", "\x1B$B$\"\x1B(B"},
        {"GB18030", "\xF0\x9F\x98\x80", "\x94\x39\xFC\x36"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.name);
        const StringEncoding encoding = UnicodeIANALookup(row.name);
        EXPECT_EQ(Convert(STRING_ENCODING_UTF8, row.utf8, encoding, CODESET_STOP), row.bytes);
        EXPECT_EQ(Convert(encoding, row.bytes, STRING_ENCODING_UTF8, CODESET_STOP), row.utf8);
        EXPECT_TRUE(GetParam().isValid(encoding, row.bytes.data(), row.bytes.size()));
    }
    for (const std::string &bytes : {"\xFE\xFF\0z"s, "\xFF\xFEz\0"s, "\0z"s}) {
        EXPECT_EQ(Convert(STRING_ENCODING_UTF16_XE, bytes, STRING_ENCODING_UTF8, CODESET_STOP), "z");
    }
}

TEST_P(CodeSetLayer, StopsSubstitutesOrSkipsByMode) {
    const StringEncoding latin1 = UnicodeIANALookup("ISO-8859-1");
    const struct {
        const char *what;
        StringEncoding from;
        std::string bytes;
        StringEncoding to;
        std::string substituted, skipped;
    } cases[] = {
        {"stray byte", STRING_ENCODING_UTF8, "a\xFFz", STRING_ENCODING_UTF16_BE, "\0a\xFF\xFD\0z"s,
         "\0a\0z"s},
        {"surrogate", STRING_ENCODING_UTF8, "\xED\xA0\x80z", STRING_ENCODING_UTF16_BE,
         "\xFF\xFD\xFF\xFD\xFF\xFD\0z"s, "\0z"s},
        {"half unit", STRING_ENCODING_UTF16_LE, "z\0y"s, STRING_ENCODING_UTF8, "z\xEF\xBF\xBD", "z"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(Convert(row.from, row.bytes, row.to, CODESET_STOP), "failed");
        EXPECT_EQ(Convert(row.from, row.bytes, row.to, CODESET_SUBSTITUTE), row.substituted);
        EXPECT_EQ(Convert(row.from, row.bytes, row.to, CODESET_SKIP), row.skipped);
        EXPECT_FALSE(GetParam().isValid(row.from, row.bytes.data(), row.bytes.size()));
    }
    const std::string euro = "a\xE2\x82\xACz";
    EXPECT_EQ(Convert(STRING_ENCODING_UTF8, euro, latin1, CODESET_STOP), "failed");
    EXPECT_EQ(Convert(STRING_ENCODING_UTF8, euro, latin1, CODESET_SKIP), "az");
}

TEST_P(CodeSetLayer, GrowsItsOutputPastAnyBuffer) {
    const StringEncoding latin1 = UnicodeIANALookup("ISO-8859-1");
    const std::string text(100000, '\xE9');
    const std::string grown = Convert(latin1, text, STRING_ENCODING_UTF8, CODESET_STOP);
    EXPECT_EQ(grown.size(), 2 * text.size());
    EXPECT_EQ(Convert(STRING_ENCODING_UTF8, grown, latin1, CODESET_STOP), text);
}

INSTANTIATE_TEST_SUITE_P(Both, CodeSetLayer,
                         testing::Values(Layer{"Icu", CodeSetIcu_Convert, CodeSetIcu_IsValid},
                                         Layer{"Builtin", CodeSetBuiltin_Convert, CodeSetBuiltin_IsValid}),
                         [](const auto &instance) { return instance.param.name; });

}  // namespace
