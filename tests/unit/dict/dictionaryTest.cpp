#include "lib/dict/dictionary.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <string>

#include "lib/config/msg.h"
#include "lib/misc/owners.h"
#include "tests/support/generalLog.h"
#include "tests/support/tempFolder.h"

namespace {

std::string posted;

class DictionaryFile : public testing::Test {
  protected:
    void SetUp() override {
        Unicode_Init(0, nullptr, nullptr);
        Msg_Reset(false);
    }
    void TearDown() override { Dictionary_Free(dict_); }

    bool Load(const std::string &content, StringEncoding encoding = STRING_ENCODING_UTF8) {
        std::ofstream(path_) << content;
        return Dictionary_Load(dict_, path_.c_str(), 18, encoding);
    }
    std::string Get(const char *name) {
        const MallocString value(DictionaryGetString(dict_, nullptr, "%s", name));
        return value != nullptr ? value.get() : "<null>";
    }
    // Takes the pending messages, each with its identifier in front, and the file's path as FILE.
    std::string Pending() const {
        GeneralLog log;
        Msg_Reset(true);
        std::string text = log.Take();
        for (size_t at = text.find(path_); at != std::string::npos; at = text.find(path_)) {
            text.replace(at, path_.size(), "FILE");
        }
        const size_t first = text.find('\n') + 1;
        return text.substr(first, text.find("-----") - first);
    }

    Dictionary *dict_ = Dictionary_Create();
    TempFolder folder_;
    const std::string path_ = folder_ / "config";
};

TEST_F(DictionaryFile, ReadsTheValueOfOneLine) {
    const std::pair<const char *, const char *> CASES[] = {
        {"bindir = /usr/bin # comment", "/usr/bin"},
        {"bindir=\"/usr/bin # not comment\"#comment", "/usr/bin # not comment"},
        {"\t bindir\t=\t\"a = b\" \t", "a = b"},
        {"bindir =", ""},
        {"bindir = |20|7c|7C20", " ||20"},
        {"bindir = \"a|22b|2\"", "a\"b|2"},
        {"bindir = |4a|4F|6a|6A|49|6G|6@|6`|6:|6/|a", "JOjjI|6G|6@|6`|6:|6/|a"},
        {" # bindir = x", "<null>"},
        {"", "<null>"},
    };
    for (const auto &[line, value] : CASES) {
        EXPECT_TRUE(Load(std::string(line) + "\n")) << line;
        EXPECT_EQ(Get("bindir"), value) << line;
    }
    EXPECT_EQ(Pending(), "");
}

TEST_F(DictionaryFile, StopsAtASyntaxError) {
    for (const char *line : {"bindir = \"/usr/bin\" extra", "bindir = a b", "bindir = \"open", "bindir",
                             "= x", "bindir /usr/bin", "name with blank = x"}) {
        EXPECT_FALSE(Load(std::string("first = 1\n") + line + "\nlast = 1\n")) << line;
        EXPECT_EQ(Pending(), "[msg.dictionary.read.syntaxError] File \"FILE\" line 2: Syntax error.\n")
            << line;
        EXPECT_EQ(Get("first"), "1");
        EXPECT_EQ(Get("last"), "<null>") << line;
    }
}

TEST_F(DictionaryFile, FailsForALineThatItCannotTake) {
    const std::string BAD_INPUT =
        "[msg.dictionary.badEncodedInput] File \"FILE\" line 2: Value \"\xFF\" for variable \"a\" is not "
        "valid in encoding \"UTF-8\".\n";
    const struct {
        const char *content;
        std::string messages;
        const char *last;
    } CASES[] = {
        {"last = a\r\nLAST = 2\nlast = 3",
         "[msg.dictionary.alreadyDefined] File \"FILE\" line 2: Variable \"LAST\" is already defined.\n"
         "[msg.dictionary.alreadyDefined] File \"FILE\" line 3: Variable \"last\" is already defined.\n",
         "a"},
        {".encoding = klingon\nlast = b",
         "[msg.dictionary.unknownEncoding] File \"FILE\" line 1: Character encoding \"klingon\" is not "
         "supported.\n",
         "b"},
        {".encoding = UTF-8\nconfig.encoding = \"US-ASCII\"\nlast = c\n",
         "[msg.dictionary.hasEncoding] File \"FILE\" line 2: File already has an encoding \"UTF-8\".\n", "c"},
        {"a = |ff\nsnapshot.encoding = UTF-8\nlast = d\n", BAD_INPUT, "d"},
        {".encoding = UTF-8\na = |ff\nlast = e\n", BAD_INPUT, "<null>"},
        {"a = |ff\nlast = f\n",
         BAD_INPUT + "[msg.dictionary.badDefaultEncoding] File \"FILE\": Failed to decode file in the "
                     "default character "
                     "encoding.\n",
         "f"},
    };
    for (const auto &row : CASES) {
        EXPECT_FALSE(Load(row.content)) << row.content;
        EXPECT_EQ(Pending(), row.messages);
        EXPECT_EQ(Get("last"), row.last) << row.content;
    }
}

TEST_F(DictionaryFile, DecodesByADeclarationAndTakesTheSignatureAsAHint) {
    EXPECT_TRUE(Load("a = \xE4\n.Encoding = \"ISO-8859-1\"\nb = |e4\nvmlist.encoding = \"latin1\"\n"));
    EXPECT_EQ(Get("a"), "\xC3\xA4");
    EXPECT_EQ(Get("b"), "\xC3\xA4");
    EXPECT_EQ(Get(".encoding"), "<null>");
    const StringEncoding latin1 = UnicodeIANALookup("ISO-8859-1");
    const std::string signature = "\xEF\xBB\xBF";
    for (const char *encoded : {"a = \xC3\xA4\n", "a = \xE4\n"}) {
        EXPECT_TRUE(Load(signature + encoded, latin1));
        EXPECT_EQ(Get("a"), "\xC3\xA4");
        EXPECT_EQ(Pending(), "");
    }
    EXPECT_FALSE(Load("\xEF\xBB", latin1)) << "a cut signature is an ordinary line";
}

TEST_F(DictionaryFile, TellsWhyAFileCannotBeRead) {
    EXPECT_FALSE(Dictionary_Load(dict_, "/nowhere/at/all", 18, STRING_ENCODING_CURRENT));
    EXPECT_FALSE(Dictionary_Load(dict_, "/", 18, STRING_ENCODING_CURRENT));
    for (const char *path : {"/dev/null", path_.c_str()}) {  // of the second nobody would read the other end
        mkfifo(path_.c_str(), 0600);
        EXPECT_FALSE(Dictionary_Load(dict_, path, 18, STRING_ENCODING_CURRENT));
    }
    EXPECT_FALSE(Dictionary_Load(dict_, "/proc/self/mem", 18, STRING_ENCODING_CURRENT));
    EXPECT_EQ(Pending(),
              "[msg.dictionary.load.statFailed] Unable to get information about file \"/nowhere/at/all\": No "
              "such file or directory.\n"
              "[msg.dictionary.load.isDirectory] \"/\" is a directory.\n"
              "[msg.dictionary.load.openFailed] Cannot open file \"/dev/null\": Invalid argument.\n"
              "[msg.dictionary.load.openFailed] Cannot open file \"FILE\": Invalid argument.\n"
              "[msg.dictionary.read.readErrorNoLine] File \"/proc/self/mem\": Input/output error.\n");
}

double AsNumber(DictionaryType type, const void *value) {
    switch (type) {
        case DICT_BOOL:
            return *static_cast<const bool *>(value) ? 1 : 0;
        case DICT_DOUBLE:
            return *static_cast<const double *>(value);
        case DICT_INT64:
            return static_cast<double>(*static_cast<const int64_t *>(value));
        default:
            return *static_cast<const int32_t *>(value);
    }
}

TEST_F(DictionaryFile, ConvertsAValueOnceAtItsFirstTypedRead) {
    const struct {
        DictionaryType type;
        const char *text;
        double value;
        const char *complaint;  // behind the value and the name; empty for a text of the type
    } CASES[] = {
        {DICT_BOOL, "", 1, ""},
        {DICT_BOOL, "ON", 1, ""},
        {DICT_BOOL, "auto", 0, "is not a valid boolean value. Using value \"false\".\n"},
        {DICT_TRISTATE, "DontCare", -1, ""},
        {DICT_TRISTATE, "maybe", 0, "is not a valid tristate value. Using value \"false\".\n"},
        {DICT_LONG, "-010", -8, ""},
        {DICT_LONG, "4294967296", -1, "is too large. Using value \"-1\".\n"},
        {DICT_LONG, "0b11", 0, "is not a valid integer value. Using value \"0\".\n"},
        {DICT_LONG, "12ab", 12, "is not a valid integer value. Using value \"12\".\n"},
        {DICT_INT64, "-4294967296", -4294967296.0, ""},
        {DICT_INT64, "99999999999999999999", -1, "is too large. Using value \"-1\".\n"},
        {DICT_INT64, "0x1g", 1, "is not a valid integer value. Using value \"1\".\n"},
        {DICT_DOUBLE, "-2.5e1", -25, ""},
        {DICT_DOUBLE, "2.5x", 2.5, "is not a valid floating-point value. Using value \"2.500000\".\n"},
    };
    Msg_SetPostCallbacks([](int, const char *, const char *text) { posted = text; }, nullptr);
    for (const auto &row : CASES) {
        const std::string quoted = '"' + std::string(row.text) + '"';
        ASSERT_TRUE(Load("v = " + quoted + "\n"));
        posted.clear();
        EXPECT_EQ(AsNumber(row.type, DictionaryGetTyped(dict_, nullptr, row.type, "V")), row.value) << quoted;
        EXPECT_EQ(posted,
                  *row.complaint == '\0' ? "" : "Value " + quoted + " for variable \"v\" " + row.complaint);
        posted.clear();
        EXPECT_EQ(AsNumber(row.type, DictionaryGetTyped(dict_, nullptr, row.type, "v")), row.value) << quoted;
        EXPECT_EQ(posted, "") << "converted twice: " << quoted;
    }
    Msg_SetPostCallbacks(nullptr, nullptr);
}

TEST_F(DictionaryFile, StoresTheDefaultOfAMissingName) {
    const MallocString first(DictionaryGetString(dict_, "fallback", "key%d", 1));
    EXPECT_STREQ(first.get(), "fallback");
    EXPECT_EQ(Get("KEY1"), "fallback");
    ASSERT_TRUE(Load(""));
    EXPECT_EQ(Get("key1"), "<null>");
}

}  // namespace
