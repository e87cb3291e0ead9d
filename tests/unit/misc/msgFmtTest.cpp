#include "lib/misc/msgFmt.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <string>
#include <utility>

#include "lib/err/errText.h"
#include "lib/misc/owners.h"

namespace {

struct Captured {
    Captured() = default;
    Captured(Captured &&other) noexcept
        : ok(other.ok),
          args(std::exchange(other.args, nullptr)),
          count(std::exchange(other.count, 0)),
          error(std::move(other.error)) {}
    Captured(const Captured &) = delete;
    Captured &operator=(const Captured &) = delete;
    ~Captured() { MsgFmt_FreeArgs(args, count); }

    std::string Expand(const char *format) const {
        const MallocString text(MsgFmt_Asprintf(nullptr, format, args, count));
        return text != nullptr ? text.get() : "<failed>";
    }

    bool ok = false;
    MsgFmtArg *args = nullptr;
    int count = 0;
    MallocString error;
};

Captured Capture(const char *format, ...) {
    Captured captured;
    va_list list;
    va_start(list, format);
    char *error = nullptr;
    captured.ok = MsgFmt_GetArgs(format, list, &captured.args, &captured.count, &error);
    captured.error.reset(error);
    va_end(list);
    return captured;
}

#define EXPECT_EXPANDS(expected, format, ...)                   \
    {                                                           \
        const Captured captured = Capture(format, __VA_ARGS__); \
        EXPECT_TRUE(captured.ok) << format;                     \
        EXPECT_EQ(captured.Expand(format), expected);           \
    }

TEST(MsgFmt, ExpandsLikePrintfWhateverTheSize) {
    EXPECT_EXPANDS("100% -7|0x00ff|+3 ", "100%% %d|%#06x|%-+3d", -7, 0xff, 3);
    EXPECT_EXPANDS("-1 65535 -1", "%hhd %hu %I32d", 255, 65535, -1);
    EXPECT_EXPANDS("4294967296 4294967297 4294967298 4294967299 4294967300", "%ld %lld %qd %I64d %jd",
                   4294967296L, 4294967297L, 4294967298L, 4294967299L, 4294967300L);
    EXPECT_EXPANDS("18446744073709551615 5 6", "%zu %Zd %td", ~0UL, 5L, 6L);
    EXPECT_EXPANDS("1.50 2e+00 x", "%.2f %.0le %c", 1.5, 2.0, 'x');
    EXPECT_EXPANDS("\xC3\xA4\xE2\x82\xAC|\xC3\xA4", "%S|%.2ls", L"\u00e4\u20ac", L"\u00e4\u20ac");
    EXPECT_EXPANDS("0x10 (null)", "%p %s", reinterpret_cast<void *>(16), nullptr);
}

TEST(MsgFmt, TakesArgumentsByPosition) {
    EXPECT_EXPANDS("b a b", "%2$s %1$s %2$s", "a", "b");
    EXPECT_EXPANDS("seven 7", "%12$s %1$d%2$.0s%3$.0s%4$.0s%5$.0s%6$.0s%7$.0s%8$.0s%9$.0s%10$.0s%11$.0s", 7,
                   "", "", "", "", "", "", "", "", "", "", "seven");
}

// A string without a terminator is only safe when no more than its precision is read.
TEST(MsgFmt, CopiesStringsUpToTheirPrecision) {
    const char unterminated[3] = {'a', 'b', 'c'};
    EXPECT_EXPANDS("abc", "%.3s", unterminated);
    EXPECT_EXPANDS("ab|abc", "%1$.2s|%1$.3s", unterminated);
    EXPECT_EXPANDS("", "%.s", "gone");

    std::string changing = "before";
    const Captured captured = Capture("%s", changing.c_str());
    changing = "behind";
    EXPECT_EQ(captured.Expand("%s"), "before");
    EXPECT_EQ(captured.args[0].p.precision, 0);
}

TEST(MsgFmt, RecognisesTheTextOfAnErrorNumber) {
    const Captured captured = Capture("%s %s", Err_ErrnoText(ENOENT), "No such file or directory");
    ASSERT_EQ(captured.count, 2);
    EXPECT_EQ(captured.args[0].type, MSGFMT_ARG_ERRNO);
    EXPECT_EQ(captured.args[0].errnoKind, 1u);
    EXPECT_EQ(captured.args[0].errnoValue, static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(captured.args[1].type, MSGFMT_ARG_STRING8);
    EXPECT_EQ(captured.Expand("%2$s/%1$s"), "No such file or directory/No such file or directory");
}

TEST(MsgFmt, RefusesBadFormatsWithAReason) {
    constexpr const char *PLAIN = "MsgFmt_GetArgs: error in format string";
    const struct {
        const char *format;
        const char *error;
    } CASES[] = {
        {"%", PLAIN},
        {"%5", PLAIN},
        {"%*d", PLAIN},
        {"%.*s", PLAIN},
        {"%y", PLAIN},
        {"%1$%", PLAIN},
        {"%0$d", PLAIN},
        {"%4097$d", PLAIN},
        {"%99999999999999999999$d", PLAIN},
        {"%1$d %d", PLAIN},
        {"%d %1$d", PLAIN},
        {"%1$d %3$d", "MsgFmt_GetArgs: gap in arguments at position 2"},
        {"%lhd", "MsgFmtGetArg1: bad specifier, status -2, pos \"\", type \"lhd\""},
        {"%2$.1.2s", "MsgFmtGetArg1: bad specifier, status -2, pos \"2\", type \".1.2s\""},
        {"%5-d", "MsgFmtGetArg1: bad specifier, status -2, pos \"\", type \"5-d\""},
        {"%2147483648d", "MsgFmtGetArg1: bad specifier, status -2, pos \"\", type \"2147483648d\""},
        {"%1$n", "MsgFmtGetArg1: %n not supported, pos \"1\", type \"n\""},
        {"%llf", "MsgFmtGetArg1: %Lf not supported, pos \"\", type \"llf\""},
        {"%jE", "MsgFmtGetArg1: %jE not supported, pos \"\", type \"jE\""},
        {"%1$d%1$ld",
         "MsgFmtGetArg1: incompatible specifiers for argument 1, old type 1, new type 2, pos \"1\", type "
         "\"ld\""},
    };
    for (const auto &row : CASES) {
        const Captured captured = Capture(row.format, 1, 2, 3);
        EXPECT_FALSE(captured.ok) << row.format;
        EXPECT_STREQ(captured.error.get(), row.error) << row.format;
    }
}

// A translated format may ask for anything; it must not read what was not captured.
TEST(MsgFmt, ExpansionFailsWhenTheFormatDoesNotSuitTheArguments) {
    const Captured captured = Capture("%d %s", 1, "x");
    EXPECT_EQ(captured.Expand("%2$s"), "x");
    for (const char *format : {"%s", "%2$d", "%3$d", "%1$ld", "%d %s %s", "%", "%n"}) {
        EXPECT_EQ(captured.Expand(format), "<failed>") << format;
    }
}

}  // namespace
