#include "lib/string/lineReader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "lib/misc/owners.h"

namespace {

// Reads the text in place.
FileStream StreamOf(std::string &text) {
    return FileStream(fmemopen(text.data(), text.size(), "r"));
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
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"", {}},
        {"\n", {""}},
        {"a\r\nb\r\n", {"a", "b"}},
        {"\r\r\n\n\r", {"", "", "", ""}},
        {std::string("a\0b\n", 4), {std::string("a\0b", 3)}},
    };
    for (auto [text, lines] : cases) {
        EXPECT_EQ(ReadAllLines(StreamOf(text).get()), lines) << testing::PrintToString(text);
    }
}

}  // namespace
