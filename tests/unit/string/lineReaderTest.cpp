#include "lib/string/lineReader.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "lib/misc/owners.h"

namespace {

FileStream StreamOf(const std::string &text) {
    FileStream stream(tmpfile());
    EXPECT_NE(stream, nullptr);
    EXPECT_EQ(fwrite(text.data(), 1, text.size(), stream.get()), text.size());
    rewind(stream.get());
    return stream;
}

std::vector<std::string> ReadAllLines(FILE *stream) {
    std::vector<std::string> lines;
    char *line = nullptr;
    size_t length = 0;
    while (ReadNextLine(stream, &line, READ_LINE_NO_LIMIT, &length) == READ_LINE_OK) {
        const MallocString owner(line);
        EXPECT_EQ(line[length], '\0');
        lines.emplace_back(line, length);
    }
    EXPECT_EQ(ReadNextLine(stream, &line, READ_LINE_NO_LIMIT, nullptr), READ_LINE_EOF) << "asked again";
    return lines;
}

TEST(ReadNextLine, TakesEveryKindOfLineEnd) {
    const struct {
        std::string text;
        std::vector<std::string> lines;
    } cases[] = {
        {"", {}},
        {"\n", {""}},
        {"a\nb", {"a", "b"}},
        {"a\rb\r", {"a", "b"}},
        {"a\r\nb\r\n", {"a", "b"}},
        {"\r\r\n\n\r", {"", "", "", ""}},
        {std::string("a\0b\n", 4), {std::string("a\0b", 3)}},
    };
    for (const auto &row : cases) {
        EXPECT_EQ(ReadAllLines(StreamOf(row.text).get()), row.lines) << testing::PrintToString(row.text);
    }
}

TEST(ReadNextLine, TestsTheLimitOnlyWhenTheBufferMustGrow) {
    const struct {
        size_t limit;
        size_t length;
        bool fits;
    } cases[] = {
        {1024, 2047, true}, {1024, 2048, false}, {10, 1023, true},
        {10, 1024, false},  {2048, 4095, true},  {2048, 4096, false},
    };
    for (const auto &row : cases) {
        for (const char *end : {"\n", ""}) {
            SCOPED_TRACE(testing::Message() << row.length << " bytes under the limit " << row.limit);
            const std::string text(row.length, 'x');
            const FileStream stream = StreamOf(text + end);
            char *line = nullptr;
            errno = 0;
            EXPECT_EQ(ReadNextLine(stream.get(), &line, row.limit, nullptr),
                      row.fits ? READ_LINE_OK : READ_LINE_ERROR);
            const MallocString owner(line);
            EXPECT_EQ(errno, row.fits ? 0 : E2BIG);
            EXPECT_STREQ(line, row.fits ? text.c_str() : nullptr);
        }
    }
}

TEST(ReadNextLine, ReportsAReadErrorWithItsReason) {
    const FileStream directory(fopen("/", "r"));
    ASSERT_NE(directory, nullptr);
    char *line = nullptr;
    EXPECT_EQ(ReadNextLine(directory.get(), &line, 1024, nullptr), READ_LINE_ERROR);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(line, nullptr);
}

}  // namespace
