#include "lib/string/str.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <string>

#include "lib/misc/owners.h"

namespace {

void StdoutToStderr() {
    dup2(STDERR_FILENO, STDOUT_FILENO);
}

// Formats through a variable, so that the compiler does not check the forms that are ours alone.
template <typename... Args>
std::string Format(const char *constant, Args... args) {
    size_t length = 0;
    const char *volatile format = constant;
    const MallocString text(Str_Asprintf(&length, format, args...));
    EXPECT_NE(text, nullptr) << format;
    return text != nullptr ? std::string(text.get(), length) : std::string();
}

TEST(StrSnprintf, KeepsWholeCharactersOnOverflow) {
    constexpr char KEPT = '#';
    const struct {
        size_t size;
        const char *text;
        int result;
        const char *kept;
    } cases[] = {
        {4, "abc", 3, "abc"},
        {4, "abcd", -1, "abc"},
        {4, "ab\xC3\xA9", -1, "ab"},
        {5, "ab\xC3\xA9", 4, "ab\xC3\xA9"},
        {6, "\xE2\x82\xAC\xE2\x82\xAC", -1, "\xE2\x82\xAC"},
        {4, "\xF0\x9F\x98\x80", -1, ""},
        {1, "a", -1, ""},
    };
    for (const auto &row : cases) {
        // The second format takes the road of the translated forms.
        for (const char *format : {"%s", "%.99s"}) {
            SCOPED_TRACE(testing::Message() << format << " of " << row.text << " into " << row.size);
            char dest[16];
            memset(dest, KEPT, sizeof dest);
            EXPECT_EQ(Str_Snprintf(dest, row.size, format, row.text), row.result);
            EXPECT_STREQ(dest, row.kept);
            EXPECT_EQ(dest[row.size], KEPT);
        }
    }
}

TEST(StrSnprintf, WritesNothingWithSizeZero) {
    char dest[] = "x";
    for (const char *format : {"", "%s", "%.1s"}) {
        EXPECT_EQ(Str_Snprintf(dest, 0, format, "abc"), -1);
        EXPECT_STREQ(dest, "x");
    }
}

TEST(StrAsprintf, TranslatesTheFormsThatTheCLibraryLacks) {
    EXPECT_EQ(Format("%I64d|%I64x|%I32u", LLONG_MIN, 0xFFFFFFFFFFULL, UINT_MAX),
              "-9223372036854775808|ffffffffff|4294967295");
    EXPECT_EQ(Format("%qd %Zu %Lx %hhd %hu %ld %jd %td %I32d", LLONG_MAX, size_t{7}, 1ULL << 40, 300, 65537,
                     -5L, intmax_t{-6}, ptrdiff_t{-8}, 9),
              "9223372036854775807 7 10000000000 44 1 -5 -6 -8 9");
    EXPECT_EQ(
        Format("%ls|%S|%8.3ls|%-5ls|%lc%C", L"\u20AC", L"\U0001F600", L"\u20ACx", L"ab", L'\u00E9', L'z'),
        "\xE2\x82\xAC|\xF0\x9F\x98\x80|     \xE2\x82\xAC|ab   |\xC3\xA9z");
    EXPECT_EQ(Format("%.2ls|%.0S", L"a\u20AC", L"abc"), "a|") << "the precision limits bytes";
}

TEST(StrAsprintf, PrintsNullStringsUnderAnyPrecision) {
    const char *none = nullptr;
    const wchar_t *noneWide = nullptr;
    EXPECT_EQ(Format("%s %.3s %10s %ls", none, none, none, noneWide), "(null) (nu     (null) (null)");
}

TEST(StrAsprintf, PrintsNanAndInfinityWithoutNumberFlags) {
    const double infinity = INFINITY;
    EXPECT_EQ(Format("%f %F %e %G", infinity, infinity, -infinity, -infinity), "inf INF -inf -INF");
    EXPECT_EQ(Format("%f %+F %05g|%-5a|", -static_cast<double>(NAN), static_cast<double>(NAN),
                     static_cast<double>(NAN), static_cast<double>(NAN)),
              "nan NAN   nan|nan  |");
    EXPECT_EQ(Format("%.2f %5.1Lf %+.0e", 1.005, 2.25L, 12345.0), "1.00   2.2 +1e+04");
}

TEST(StrAsprintf, TakesArgumentsBySequenceStarAndPosition) {
    EXPECT_EQ(Format("[%*d] [%-*d] [%.*f] [%.*s]", -4, 1, 3, 2, 1, 3.14, -1, "all"),
              "[1   ] [2  ] [3.1] [all]");
    EXPECT_EQ(Format("%2$.1f %1$s %1$.2s", "abc", 0.5), "0.5 abc ab");
    int count = 0;
    long long wideCount = 0;
    EXPECT_EQ(Format("%.1f%n%%%I64n %y", 1.0, &count, &wideCount), "1.0% %y");
    EXPECT_EQ(count, 3);
    EXPECT_EQ(wideCount, 4);
}

TEST(StrDeathTest, StopsWhenTheBufferIsTooSmall) {
    char dest[12];
    EXPECT_STREQ(Str_Strcpy(dest, "12345678901", sizeof dest), "12345678901");
    EXPECT_EXIT((StdoutToStderr(), Str_Strcpy(dest, "123456789012", sizeof dest)), testing::ExitedWithCode(1),
                "tests/unit/string/strTest.cpp:[0-9]+ Buffer too small 0xc\n");
    EXPECT_EXIT((StdoutToStderr(), Str_Sprintf(dest, sizeof dest, "%s", "123456789012")),
                testing::ExitedWithCode(1), "lib/string/str.cpp:[0-9]+ Buffer too small 0xc\n");
}

TEST(StrDeathTest, StopsOnlyInSafeAsprintfWhenTheTextCannotBeMade) {
    const char *volatile format = "%ls";
    const wchar_t surrogate[] = {static_cast<wchar_t>(0xD800), 0};
    EXPECT_EQ(Str_Asprintf(nullptr, format, surrogate), nullptr);
    EXPECT_EXIT((StdoutToStderr(), Str_SafeAsprintf(nullptr, format, surrogate)), testing::ExitedWithCode(1),
                "Unrecoverable memory allocation failure at lib/string/str.cpp:[0-9]+\n");
}

}  // namespace
