#include "lib/dict/dictionary.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "lib/config/msg.h"
#include "lib/misc/owners.h"

namespace {

std::string posted;

// A dictionary, a file to load it from, and the messages as the one text that a post would show.
class DictionaryFile : public testing::Test {
  protected:
    void SetUp() override {
        Unicode_Init(0, nullptr, nullptr);
        Msg_Reset(false);
        Msg_SetPostCallbacks([](int, const char *, const char *text) { posted = text; }, nullptr);
        posted.clear();
        path_ = testing::TempDir() + "dictionaryXXXXXX";
        close(mkstemp(path_.data()));
    }
    void TearDown() override {
        Msg_SetPostCallbacks(nullptr, nullptr);
        unlink(path_.c_str());
        Dictionary_Free(dict_);
    }

    bool Load(const std::string &content, StringEncoding encoding = STRING_ENCODING_UTF8) {
        const FileStream file(fopen(path_.c_str(), "w"));
        fwrite(content.data(), 1, content.size(), file.get());
        fflush(file.get());
        return Dictionary_Load(dict_, path_.c_str(), 18, encoding);
    }
    std::string Get(const char *name) {
        const MallocString value(DictionaryGetString(dict_, nullptr, "%s", name));
        return value != nullptr ? value.get() : "<null>";
    }
    // The pending messages, with the file's path as FILE.
    static std::string Pending(const std::string &path) {
        Msg_Post(MSG_ERROR, MSGID("test.end") ".");
        for (size_t at = posted.find(path); at != std::string::npos; at = posted.find(path)) {
            posted.replace(at, path.size(), "FILE");
        }
        return posted.substr(0, posted.size() - 1);
    }
    std::string Pending() const { return Pending(path_); }

    Dictionary *dict_ = Dictionary_Create();
    std::string path_;
};

TEST_F(DictionaryFile, ReadsTheValueOfOneLine) {
    const struct {
        const char *line;
        const char *value;
    } CASES[] = {
        {"bindir = /usr/bin # comment", "/usr/bin"},
        {"bindir=\"/usr/bin # not comment\"#comment", "/usr/bin # not comment"},
        {"\t bindir\t=\t\"a = b\" \t", "a = b"},
        {"BinDir = x", "x"},
        {"bindir =", ""},
        {"bindir = # comment", ""},
        {"bindir = \"\"", ""},
        {"bindir = a=b\"c", "a=b\"c"},
        {"bindir = \"a|22b\"", "a\"b"},
        {"bindir = |20|7c|7C20", " ||20"},
        {"bindir = \"a|2\"", "a|2"},
        {"bindir = \"a|zzb\"", "a|zzb"},
        {"bindir = \"||41|\"", "|A|"},
        {"bindir = a|00b", "a"},
        {"# bindir = x", "<null>"},
        {" \t", "<null>"},
        {"", "<null>"},
        {".foo = \"1\"", "<null>"},
    };
    for (const auto &row : CASES) {
        EXPECT_TRUE(Load(std::string(row.line) + "\n")) << row.line;
        EXPECT_EQ(Get("bindir"), row.value) << row.line;
    }
    EXPECT_EQ(Pending(), "");
}

TEST_F(DictionaryFile, StopsAtASyntaxError) {
    for (const char *line : {"bindir = \"/usr/bin\" extra", "bindir = a b", "bindir = \"open", "bindir",
                             "= x", "bindir /usr/bin", "name with blank = x"}) {
        EXPECT_FALSE(Load(std::string("first = 1\n") + line + "\nlast = 1\n")) << line;
        EXPECT_EQ(Pending(), "File \"FILE\" line 2: Syntax error.\n") << line;
        EXPECT_EQ(Get("first"), "1");
        EXPECT_EQ(Get("last"), "<null>") << line;
    }
}

TEST_F(DictionaryFile, GoesOnAfterLinesThatOnlyFail) {
    EXPECT_FALSE(Load("a = 1\r\nA = 2\n.encoding = klingon\nlast = x"));
    EXPECT_EQ(Get("a"), "1");
    EXPECT_EQ(Get("last"), "x");
    EXPECT_EQ(Pending(),
              "File \"FILE\" line 2: Variable \"A\" is already defined.\n"
              "File \"FILE\" line 3: Character encoding \"klingon\" is not supported.\n");

    EXPECT_FALSE(Load(".encoding = UTF-8\nconfig.encoding = \"US-ASCII\"\nlast = y\n"));
    EXPECT_EQ(Get("last"), "y");
    EXPECT_EQ(Pending(), "File \"FILE\" line 2: File already has an encoding \"UTF-8\".\n");
}

TEST_F(DictionaryFile, DecodesLinesBeforeAndBehindADeclaration) {
    EXPECT_TRUE(Load("a = \xE4\n.Encoding = \"ISO-8859-1\"\nb = |e4\nvmlist.encoding = \"latin1\"\n"));
    EXPECT_EQ(Get("a"), "\xC3\xA4");
    EXPECT_EQ(Get("b"), "\xC3\xA4");
    EXPECT_EQ(Get(".encoding"), "<null>");
}

TEST_F(DictionaryFile, RefusesValuesThatTheEncodingCannotHold) {
    EXPECT_FALSE(Load(".encoding = UTF-8\na = |ff\nlast = x\n"));
    EXPECT_EQ(
        Pending(),
        "File \"FILE\" line 2: Value \"\xFF\" for variable \"a\" is not valid in encoding \"UTF-8\".\n");
    EXPECT_EQ(Get("last"), "<null>");

    EXPECT_FALSE(Load("a = |ff\n.encoding = UTF-8\nlast = x\n"));
    EXPECT_EQ(Get("last"), "x");
    EXPECT_NE(Pending().find("File \"FILE\" line 2: Value"), std::string::npos);

    EXPECT_FALSE(Load("a = |ff\n"));
    EXPECT_EQ(Pending(),
              "File \"FILE\" line 1: Value \"\xFF\" for variable \"a\" is not valid in encoding \"UTF-8\".\n"
              "File \"FILE\": Failed to decode file in the default character encoding.\n");
}

TEST_F(DictionaryFile, TakesTheSignatureAsAHint) {
    const StringEncoding latin1 = UnicodeIANALookup("ISO-8859-1");
    EXPECT_TRUE(
        Load("\xEF\xBB\xBF"
             "a = \xC3\xA4\n",
             latin1));
    EXPECT_EQ(Get("a"), "\xC3\xA4");
    EXPECT_TRUE(
        Load("\xEF\xBB\xBF"
             "a = \xE4\n",
             latin1));
    EXPECT_EQ(Get("a"), "\xC3\xA4");
    EXPECT_TRUE(Load("\xEF\xBB", latin1) == false) << "a cut signature is an ordinary line";
    EXPECT_EQ(Pending(), "File \"FILE\" line 1: Syntax error.\n");
}

TEST_F(DictionaryFile, TellsWhyAFileCannotBeRead) {
    EXPECT_FALSE(Dictionary_Load(dict_, "/nowhere/at/all", 18, STRING_ENCODING_CURRENT));
    EXPECT_FALSE(Dictionary_Load(dict_, "/", 18, STRING_ENCODING_CURRENT));
    EXPECT_EQ(Pending(),
              "Unable to get information about file \"/nowhere/at/all\": No such file or directory.\n"
              "\"/\" is a directory.\n");
    // Its own memory is a file that opens, but whose first page cannot be read.
    EXPECT_FALSE(Dictionary_Load(dict_, "/proc/self/mem", 18, STRING_ENCODING_CURRENT));
    EXPECT_EQ(Pending(), "File \"/proc/self/mem\": Input/output error.\n");
}

TEST_F(DictionaryFile, ConvertsAValueOnceAtItsFirstTypedRead) {
    ASSERT_TRUE(
        Load("yes = ON\nno = f\nempty =\nbad = maybe\nauto = Auto\nhex = 0x10\nbig = 4294967295\n"
             "huge = 4294967296\ntext = 12ab\nnone =\nreal = 2.5\nwide = -5\n"));
    EXPECT_TRUE(*static_cast<bool *>(DictionaryGetTyped(dict_, nullptr, DICT_BOOL, "yes")));
    EXPECT_FALSE(*static_cast<bool *>(DictionaryGetTyped(dict_, nullptr, DICT_BOOL, "no")));
    EXPECT_TRUE(*static_cast<bool *>(DictionaryGetTyped(dict_, nullptr, DICT_BOOL, "empty")));
    EXPECT_EQ(*static_cast<int *>(DictionaryGetTyped(dict_, nullptr, DICT_TRISTATE, "auto")), -1);
    EXPECT_EQ(*static_cast<double *>(DictionaryGetTyped(dict_, nullptr, DICT_DOUBLE, "real")), 2.5);
    EXPECT_EQ(*static_cast<int64_t *>(DictionaryGetTyped(dict_, nullptr, DICT_INT64, "wide")), -5);
    EXPECT_EQ(*static_cast<int32_t *>(DictionaryGetTyped(dict_, nullptr, DICT_LONG, "hex")), 16);
    EXPECT_EQ(*static_cast<int32_t *>(DictionaryGetTyped(dict_, nullptr, DICT_LONG, "big")), -1);
    EXPECT_EQ(posted, "");

    const struct {
        DictionaryType type;
        const char *name;
        const char *message;
    } CASES[] = {
        {DICT_BOOL, "bad",
         "Value \"maybe\" for variable \"bad\" is not a valid boolean value. Using value \"false\".\n"},
        {DICT_LONG, "huge", "Value \"4294967296\" for variable \"huge\" is too large. Using value \"-1\".\n"},
        {DICT_LONG, "text",
         "Value \"12ab\" for variable \"text\" is not a valid integer value. Using value \"12\".\n"},
        {DICT_INT64, "none",
         "Value \"\" for variable \"none\" is not a valid integer value. Using value \"0\".\n"},
    };
    for (const auto &row : CASES) {
        posted.clear();
        DictionaryGetTyped(dict_, nullptr, row.type, row.name);
        EXPECT_EQ(posted, row.message);
        posted.clear();
        DictionaryGetTyped(dict_, nullptr, row.type, row.name);
        EXPECT_EQ(posted, "") << "converted twice: " << row.name;
    }
}

TEST_F(DictionaryFile, StoresTheDefaultOfAMissingName) {
    const MallocString first(DictionaryGetString(dict_, "fallback", "key%d", 1));
    EXPECT_STREQ(first.get(), "fallback");
    EXPECT_EQ(Get("KEY1"), "fallback");
    ASSERT_TRUE(Load(""));
    EXPECT_EQ(Get("key1"), "<null>");
}

}  // namespace
