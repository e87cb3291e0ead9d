#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "lib/log/log.h"
#include "lib/misc/owners.h"
#include "lib/unicode/ianaTable.h"
#include "tests/support/generalLog.h"

namespace {

TEST(IanaTable, NumbersEveryEncodingBelow316) {
    std::map<StringEncoding, int> rows;
    for (const IanaRow &row : IANA_TABLE) {
        rows[row.encoding]++;
        int aliases = *row.aliases != '\0' ? 1 : 0;
        for (const char *c = row.aliases; *c != '\0'; c++) {
            aliases += *c == ' ' ? 1 : 0;
        }
        EXPECT_LE(aliases, IANA_MAX_ALIASES) << row.preferred;
    }
    ASSERT_EQ(rows.size(), static_cast<size_t>(STRING_ENCODING_COUNT));
    EXPECT_EQ(rows.begin()->first, 0);
    EXPECT_EQ(rows.rbegin()->first, STRING_ENCODING_COUNT - 1);
    EXPECT_EQ(rows[STRING_ENCODING_UTF16_XE], 2) << "shared with ISO-10646-UCS-2";
}

TEST(UnicodeIANALookup, ComparesLettersAndDigitsOnly) {
    const struct {
        const char *name;
        const char *preferred;  // null for an unsupported name
    } cases[] = {
        {"UTF-8", "UTF-8"},
        {"  u t_F--8!", "UTF-8"},
        {"ISO-10646-UCS-2", "UTF-16"},
        {"646", "US-ASCII"},
        {"latin1", "ISO-8859-1"},
        {"cp1251", "windows-1251"},
        {"windows-932", "Windows-31J"},
        {"windows-12000", "UTF-32LE"},
        {"windows-0", nullptr},
        {"windows-", nullptr},
        {"windows-1252x", nullptr},
        {"UTF-88", nullptr},
        {"", nullptr},
        {"INVARIANT", nullptr},
    };
    for (const auto &row : cases) {
        const StringEncoding encoding = UnicodeIANALookup(row.name);
        EXPECT_STREQ(Unicode_EncodingEnumToName(encoding), row.preferred) << '"' << row.name << '"';
        if (row.preferred == nullptr) {
            EXPECT_EQ(encoding, STRING_ENCODING_UNSUPPORTED) << '"' << row.name << '"';
        }
    }
}

TEST(UnicodeIANALookup, LogsOnlyNamesThatNoRowHolds) {
    GeneralLog log;
    UnicodeIANALookup("INVARIANT");
    UnicodeIANALookup("no-such");
    EXPECT_EQ(log.Take(), "UnicodeIANALookup: Did not find an IANA match for encoding \"no-such\"\n");
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
        const char *fileNames;
        const char *brokenFileNames;
        const char *locale;
        const char *argument;
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

TEST(UnicodeAlloc, FindsTheEndByTheEncoding) {
    const char16_t wide[] = u"ab";
    const MallocString text(Unicode_AllocWithLength(wide, -1, STRING_ENCODING_UTF16_LE));
    EXPECT_STREQ(text.get(), "ab");
    const MallocString part(Unicode_AllocWithLength("abc", 2, STRING_ENCODING_UTF8));
    EXPECT_STREQ(part.get(), "ab");
    EXPECT_EQ(Unicode_AllocWithLength(nullptr, -1, STRING_ENCODING_UTF8), nullptr);
}

TEST(UnicodeGetAllocBytes, GivesNullForWhatDoesNotConvert) {
    EXPECT_EQ(Unicode_GetAllocBytes(nullptr, STRING_ENCODING_UTF8), nullptr);
    EXPECT_EQ(Unicode_GetAllocBytes("caf\xC3\xA9", STRING_ENCODING_US_ASCII), nullptr);
    EXPECT_EQ(Unicode_GetAllocBytes("caf\xE9", STRING_ENCODING_UTF8), nullptr);
    EXPECT_FALSE(Unicode_IsBufferValid("caf\xE9", -1, STRING_ENCODING_UTF8));
    EXPECT_TRUE(Unicode_IsBufferValid("caf\xE9", 3, STRING_ENCODING_UTF8));
    const MallocBlock<char> bytes(static_cast<char *>(Unicode_GetAllocBytes("ab", STRING_ENCODING_UTF16_BE)));
    EXPECT_EQ(memcmp(bytes.get(), "\0a\0b\0\0\0\0", 8), 0);
}

}  // namespace
