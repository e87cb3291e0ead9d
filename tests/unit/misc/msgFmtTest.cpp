#include "lib/misc/msgFmt.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <string>

#include "lib/err/errText.h"
#include "lib/misc/owners.h"

namespace {

// The arguments of a format, or the reason of its refusal.
class Captured {
  public:
    explicit Captured(const char *format, ...) : ownFormat(format) {
        va_list list;
        va_start(list, format);
        char *text = nullptr;
        const bool captured = MsgFmt_GetArgs(format, list, &args, &count, &text);
        EXPECT_EQ(captured, text == nullptr);
        error.reset(text);
        va_end(list);
    }
    Captured(const Captured &) = delete;
    Captured &operator=(const Captured &) = delete;
    ~Captured() { MsgFmt_FreeArgs(args, count); }

    std::string Expand(const char *format) const {
        const MallocString text(MsgFmt_Asprintf(nullptr, format, args, count));
        return text != nullptr ? text.get() : "<failed>";
    }
    std::string Expand() const { return Expand(ownFormat); }

    const char *ownFormat;
    MsgFmtArg *args = nullptr;
    int count = 0;
    MallocString error;
};

TEST(MsgFmt, ExpandsLikePrintfWhateverTheSize) {
    EXPECT_EQ(Captured("100%% %d|%#06x|%-+3d", -7, 0xff, 3).Expand(), "100% -7|0x00ff|+3 ");
    EXPECT_EQ(Captured("%hhd %hu %I32d", 255, 65535, -1).Expand(), "-1 65535 -1");
    EXPECT_EQ(Captured("%lld %I64d %zu", 4294967297L, -4294967299L, ~0UL).Expand(),
              "4294967297 -4294967299 18446744073709551615");
    EXPECT_EQ(Captured("%.2f %.0le %c", 1.5, 2.0, 'x').Expand(), "1.50 2e+00 x");
    EXPECT_EQ(Captured("%S|%.2ls", L"\u00e4\u20ac", L"\u00e4\u20ac").Expand(),
              "\xC3\xA4\xE2\x82\xAC|\xC3\xA4");
    EXPECT_EQ(Captured("%p %s", reinterpret_cast<void *>(16), nullptr).Expand(), "0x10 (null)");
    EXPECT_EQ(Captured("%2$s %1$s %2$s", "a", "b").Expand(), "b a b");
}

// A string without a terminator is only safe when no more than its precision is read.
TEST(MsgFmt, CopiesStringsUpToTheirPrecision) {
    const char unterminated[3] = {'a', 'b', 'c'};
    EXPECT_EQ(Captured("%.3s", unterminated).Expand(), "abc");
    EXPECT_EQ(Captured("%1$.2s|%1$.3s", unterminated).Expand(), "ab|abc");

    std::string changing = "before";
    const Captured captured("%s", changing.c_str());
    changing = "behind";
    EXPECT_EQ(captured.Expand("%s"), "before");
}

TEST(MsgFmt, RecognisesTheTextOfAnErrorNumber) {
    for (const int number : {ENOENT, -7}) {
        const Captured captured("%s %s", Err_ErrnoText(number), strerror(number));
        EXPECT_EQ(captured.args[0].type, MSGFMT_ARG_ERRNO);
        EXPECT_EQ(captured.args[0].errnoValue, static_cast<uint32_t>(number));
        EXPECT_EQ(captured.args[1].type, MSGFMT_ARG_STRING8);
    }
}

TEST(MsgFmt, RefusesBadFormatsWithAReason) {
    for (const char *format : {"%", "%5", "%*d", "%.*s", "%y", "%1$%", "%0$d", "%4097$d",
                               "%99999999999999999999$d", "%1$d %d", "%d %1$d"}) {
        EXPECT_STREQ(Captured(format, 1, 2, 3).error.get(), "MsgFmt_GetArgs: error in format string")
            << format;
    }
    const std::pair<const char *, const char *> CASES[] = {
        {"%1$d %3$d", "MsgFmt_GetArgs: gap in arguments at position 2"},
        {"%4096$d", "MsgFmt_GetArgs: gap in arguments at position 1"},
        {"%lhd", "MsgFmtGetArg1: bad specifier, status -2, pos \"\", type \"lhd\""},
        {"%1$n", "MsgFmtGetArg1: %n not supported, pos \"1\", type \"n\""},
        {"%llf", "MsgFmtGetArg1: %Lf not supported, pos \"\", type \"llf\""},
        {"%1$d%1$ld",
         "MsgFmtGetArg1: incompatible specifiers for argument 1, old type 1, new type 2, pos \"1\", type "
         "\"ld\""},
    };
    for (const auto &[format, error] : CASES) {
        EXPECT_STREQ(Captured(format, 1, 2, 3).error.get(), error);
    }
}

// A translated format may ask for anything; it must not read what was not captured.
TEST(MsgFmt, ExpansionFailsWhenTheFormatDoesNotSuitTheArguments) {
    const Captured captured("%d %s", 1, "x");
    EXPECT_EQ(captured.Expand("%2$s"), "x");
    for (const char *format : {"%s", "%2$d", "%3$d", "%1$ld", "%d %s %s", "%", "%n"}) {
        EXPECT_EQ(captured.Expand(format), "<failed>") << format;
    }
}

}  // namespace
