#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "lib/log/log.h"
#include "lib/misc/owners.h"
#include "lib/unicode/unicode.h"

namespace {

TEST(UnicodeIANALookup, ComparesLettersAndDigitsOnly) {
    const std::pair<const char *, const char *> cases[] = {
        {"UTF-8", "UTF-8"},
        {"  u t_F--8!", "UTF-8"},
        {"ISO-10646-UCS-2", "UTF-16"},
        {"latin1", "ISO-8859-1"},
        {"windows-12000", "UTF-32LE"},
        {"windows-", nullptr},  // not supported
        {"", nullptr},
        {"INVARIANT", nullptr},
    };
    for (const auto &[name, preferred] : cases) {
        EXPECT_STREQ(Unicode_EncodingEnumToName(UnicodeIANALookup(name)), preferred) << '"' << name << '"';
    }
}

void SetVariable(const char *name, const char *value) {
    value != nullptr ? setenv(name, value, 1) : unsetenv(name);
}

// Everything that shows goes to descriptor 2, which a death test reads: log lines, what is printed, the stop.
[[noreturn]] void InitAndPrint(std::string argument) {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    Log_SetLogHook([](const char *format, va_list args) { vfprintf(stderr, format, args); });
    char *arguments[] = {argument.data(), nullptr};
    char *variables[] = {argument.data(), nullptr};
    char **argv = arguments;
    char **envp = variables;
    Unicode_Init(1, &argv, &envp);
    const bool replaced = argv != arguments && argv[1] == nullptr && envp != variables && envp[1] == nullptr;
    fprintf(stderr, "<%s %d %s %s>", Unicode_CurrentEncodingName(), Unicode_GetCurrentEncoding(), argv[0],
            envp[0]);
    _exit(replaced ? 0 : 3);
}

// The current encoding is decided once, so each of these cases needs a process of its own.
TEST(UnicodeInitDeathTest, TakesTheEncodingFromTheEnvironmentAndTheArgumentsToUtf8) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const struct {
        const char *fileNames, *brokenFileNames, *locale, *argument;
        int exitStatus;
        const char *output;
    } cases[] = {
        {nullptr, nullptr, "C", "x", 0, "<UTF-8 0 x x>"},
        {"@locale,UTF-8", nullptr, "C", "x", 0, "<ANSI_X3.4-1968 7 x x>"},
        {"@locale", nullptr, "C.UTF-8", "x", 0, "<UTF-8 0 x x>"},
        {"", "", "C", "x", 0, "<ANSI_X3.4-1968 7 x x>"},
        {"ISO-8859-1,UTF-8", "1", "C", "caf\xE9", 0, "<ISO-8859-1 8 caf\xC3\xA9 caf\xC3\xA9>"},
        {"klingon,UTF-8", nullptr, "C", "x", 1,
         "Panic:\nUnsupported local character encoding \"klingon\"\\.\n"},
        {"SCSU", nullptr, "C", "x", 1,
         "Panic:\nUnsupported local character encoding \"SCSU\"\\.\n"},  // no converter
        // No string of bytes with one NUL at its end is a text in these.
        {"UTF-16LE", nullptr, "C", "x", 1, "Panic:\nUnsupported local character encoding \"UTF-16LE\"\\.\n"},
        {"ucs-4", nullptr, "C", "x", 1, "Panic:\nUnsupported local character encoding \"ucs-4\"\\.\n"},
        {nullptr, nullptr, "C", "a\xE9\n", 1,
         "Unicode_AllocWithLength: Error: Couldn't convert invalid buffer \\[a\\\\xE9\\\\x0A\\] from "
         "UTF-8 to Unicode\\.\n.*Panic:\nPANIC lib/unicode/unicodeBasics.cpp:[0-9]+\n"},
    };
    for (const auto &row : cases) {
        SetVariable("LC_ALL", row.locale);
        SetVariable("G_FILENAME_ENCODING", row.fileNames);
        SetVariable("G_BROKEN_FILENAMES", row.brokenFileNames);
        EXPECT_EXIT(InitAndPrint(row.argument), testing::ExitedWithCode(row.exitStatus), row.output);
    }
}

TEST(UnicodeAlloc, FindsTheEndByTheEncodingAndRefusesWhatDoesNotConvert) {
    const char16_t wide[] = u"ab";
    const MallocString text(Unicode_AllocWithLength(wide, -1, STRING_ENCODING_UTF16_LE));
    EXPECT_STREQ(text.get(), "ab");
    EXPECT_EQ(Unicode_GetAllocBytes("caf\xC3\xA9", STRING_ENCODING_US_ASCII), nullptr);
    EXPECT_FALSE(Unicode_IsBufferValid("caf\xE9", -1, STRING_ENCODING_UTF8));
    EXPECT_TRUE(Unicode_IsBufferValid("caf\xE9", 3, STRING_ENCODING_UTF8));
    const MallocBlock<char> bytes(static_cast<char *>(Unicode_GetAllocBytes("ab", STRING_ENCODING_UTF16_BE)));
    EXPECT_EQ(memcmp(bytes.get(), "\0a\0b\0\0\0\0", 8), 0);
}

}  // namespace
