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

namespace {

std::string lastLogged;

void RecordLine(const char *format, va_list args) {
    char line[512];
    vsnprintf(line, sizeof line, format, args);
    lastLogged = line;
}

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
        {"utf8", "UTF-8"},
        {"  u t_F--8!", "UTF-8"},
        {"UTF-16LE", "UTF-16LE"},
        {"ISO-10646-UCS-2", "UTF-16"},
        {"ANSI_X3.4-1968", "US-ASCII"},
        {"646", "US-ASCII"},
        {"latin1", "ISO-8859-1"},
        {"windows-1252", "windows-1252"},
        {"cp1251", "windows-1251"},
        {"windows-932", "Windows-31J"},
        {"Windows-65001", "UTF-8"},
        {"windows-28591", "ISO-8859-1"},
        {"windows-20127", "US-ASCII"},
        {"windows-12000", "UTF-32LE"},
        {"windows-0", nullptr},
        {"windows-", nullptr},
        {"windows-1252x", nullptr},
        {"windows-99999999999999999999", nullptr},
        {"UTF-88", nullptr},
        {"UTF", nullptr},
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
    lastLogged.clear();
    Log_SetLogHook(RecordLine);
    UnicodeIANALookup("INVARIANT");
    EXPECT_EQ(lastLogged, "");
    UnicodeIANALookup("no-such");
    Log_SetLogHook(nullptr);
    EXPECT_EQ(lastLogged, "UnicodeIANALookup: Did not find an IANA match for encoding \"no-such\"\n");
}

// The current encoding is decided once, so each of these cases needs a process of its own.
class EncodingDeathTest : public testing::Test {
  protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

struct Environment {
    const char *fileNameEncoding;
    const char *brokenFileNames;
    const char *locale;
};

void SetEnvironment(const Environment &environment) {
    const std::pair<const char *, const char *> variables[] = {
        {"G_FILENAME_ENCODING", environment.fileNameEncoding},
        {"G_BROKEN_FILENAMES", environment.brokenFileNames},
        {"LC_ALL", environment.locale},
    };
    for (const auto &[name, value] : variables) {
        if (value != nullptr) {
            setenv(name, value, 1);
        } else {
            unsetenv(name);
        }
    }
}

[[noreturn]] void PrintCurrent(const Environment &environment) {
    SetEnvironment(environment);
    fprintf(stderr, "<%s %d>", Unicode_CurrentEncodingName(), Unicode_GetCurrentEncoding());
    _exit(0);
}

TEST_F(EncodingDeathTest, DecidesTheCurrentEncodingFromTheEnvironment) {
    const struct {
        Environment environment;
        const char *expected;
    } cases[] = {
        {{nullptr, nullptr, "C"}, "<UTF-8 0>"},
        {{"", nullptr, "C"}, "<UTF-8 0>"},
        {{"@locale,UTF-8", nullptr, "C"}, "<ANSI_X3.4-1968 7>"},
        {{"@locale", nullptr, "C.UTF-8"}, "<UTF-8 0>"},
        {{"ISO-8859-1,UTF-8", "1", "C"}, "<ISO-8859-1 8>"},
        {{nullptr, "", "C"}, "<ANSI_X3.4-1968 7>"},
        {{"", "1", "C"}, "<ANSI_X3.4-1968 7>"},
        {{"klingon", nullptr, "C"}, "<klingon -2>"},
    };
    for (const auto &row : cases) {
        EXPECT_EXIT(PrintCurrent(row.environment), testing::ExitedWithCode(0), row.expected);
    }
}

[[noreturn]] void InitWithArguments(const Environment &environment, const char *argument) {
    SetEnvironment(environment);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    char name[] = "tool";
    std::string copy = argument;
    char *arguments[] = {name, copy.data(), nullptr};
    char **argv = arguments;
    char *variables[] = {copy.data(), nullptr};
    char **envp = variables;
    Unicode_Init(2, &argv, &envp);
    const bool replaced = argv != arguments && argv[2] == nullptr && envp != variables && envp[1] == nullptr;
    fprintf(stderr, "<%s %s %s>", argv[0], argv[1], envp[0]);
    _exit(replaced ? 0 : 3);
}

TEST_F(EncodingDeathTest, InitReplacesTheArgumentsByUtf8) {
    EXPECT_EXIT(InitWithArguments({"ISO-8859-1", nullptr, "C"}, "caf\xE9"), testing::ExitedWithCode(0),
                "<tool caf\xC3\xA9 caf\xC3\xA9>");
}

TEST_F(EncodingDeathTest, InitStopsForAnEncodingWithoutConverter) {
    EXPECT_EXIT(InitWithArguments({"klingon,UTF-8", nullptr, "C"}, "x"), testing::ExitedWithCode(1),
                "Unsupported local character encoding \"klingon\"\\.\n");
}

TEST_F(EncodingDeathTest, InitStopsForAnArgumentThatIsNotValid) {
    EXPECT_EXIT(InitWithArguments({nullptr, nullptr, "C"}, "caf\xE9"), testing::ExitedWithCode(1),
                "PANIC lib/unicode/unicodeBasics.cpp:[0-9]+\n");
}

TEST(UnicodeAllocDeathTest, LogsTheEscapedBufferBeforeItStops) {
    EXPECT_EXIT((dup2(STDERR_FILENO, STDOUT_FILENO),
                 Log_SetLogHook([](const char *format, va_list args) { vfprintf(stderr, format, args); }),
                 Unicode_AllocWithLength("a\xE9\n", 3, STRING_ENCODING_US_ASCII)),
                testing::ExitedWithCode(1),
                "Unicode_AllocWithLength: Error: Couldn't convert invalid buffer \\[a\\\\xE9\\\\x0A\\] from "
                "US-ASCII to Unicode\\.\n");
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
