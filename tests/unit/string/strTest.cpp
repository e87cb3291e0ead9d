#include "lib/string/str.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <string>

#include "lib/misc/owners.h"

namespace {

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
    const std::pair<const char *, const char *> cases[] = {
        {"abcd", "abc"}, {"ab\xC3\xA9", "ab"}, {"a\xC3\xA9", "a\xC3\xA9"}, {"\xF0\x9F\x98\x80", ""}};
    for (const auto &[text, kept] : cases) {
        // The second format takes the road of the translated forms.
        for (const char *format : {"%s", "%.99s"}) {
            char dest[] = "#####";
            EXPECT_EQ(Str_Snprintf(dest, 4, format, text), strlen(text) < 4 ? 3 : -1) << text;
            EXPECT_STREQ(dest, kept);
            EXPECT_EQ(dest[4], '#');
        }
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
    const char *none = nullptr;
    EXPECT_EQ(Format("%s %.3s %10s", none, none, none), "(null) (nu     (null)");
}

TEST(StrAsprintf, TakesArgumentsBySequenceStarAndPosition) {
    EXPECT_EQ(Format("[%*d] [%-*d] [%.*f] [%.*s]", -4, 1, 3, 2, 1, 3.14, -1, "all"),
              "[1   ] [2  ] [3.1] [all]");
    EXPECT_EQ(Format("%2$.1f %1$s %1$.2s", "abc", 0.5), "0.5 abc ab");
    long long count = 0;
    EXPECT_EQ(Format("%.1f%%%I64n %y", 1.0, &count), "1.0% %y");
    EXPECT_EQ(count, 4);
}

TEST(StrAsprintf, NamesRealsThatAreNoNumbers) {
    EXPECT_EQ(Format("%f %F %e %g|%6.1f|%-5G|%+05f", NAN, -NAN, INFINITY, -INFINITY, NAN, INFINITY, -NAN),
              "nan NAN inf -inf|   nan|INF  |  nan");
}

// A lone half of a pair of units is no text.
TEST(StrDeathTest, TellsWhatDoesNotFormatFromALackOfMemory) {
    char dest[16] = "before";
    EXPECT_EQ(Str_Snprintf(dest, sizeof dest, "%ls", L"\xD800"), -1);
    EXPECT_STREQ(dest, "");
    const auto format = [](const char *constant, auto argument) {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        const char *volatile unchecked = constant;
        char small[16];
        Str_Snprintf(small, sizeof small, unchecked, argument);
        Str_SafeAsprintf(nullptr, unchecked, argument);
        _exit(0);
    };
    EXPECT_EXIT(format("%ls", L"\xD800"), testing::ExitedWithCode(1), "^Panic:\nPANIC lib/string/str.cpp");
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // which need far more addresses
    const rlimit limit = {size_t{1} << 28, size_t{1} << 28};
    EXPECT_EXIT((setrlimit(RLIMIT_AS, &limit), format("%2000000000.3f", 1.0)), testing::ExitedWithCode(1),
                "^Panic:\nUnrecoverable memory allocation failure at lib/string/str.cpp:[0-9]+\n$");
#endif
}

TEST(StrDeathTest, StopsWhenTheBufferIsTooSmall) {
    char dest[12];
    EXPECT_STREQ(Str_Strcpy(dest, "12345678901", sizeof dest), "12345678901");
    EXPECT_EXIT((dup2(STDERR_FILENO, STDOUT_FILENO), Str_Strcpy(dest, "123456789012", sizeof dest)),
                testing::ExitedWithCode(1), "tests/unit/string/strTest.cpp:[0-9]+ Buffer too small 0xc\n");
}

}  // namespace
