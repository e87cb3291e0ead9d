#include "lib/dict/dictionaryLine.h"

#include <cstring>
#include <string_view>

#include "lib/fatal/memory.h"

namespace {

constexpr char BLANKS[] = " \t";
constexpr char NAME_ENDS[] = " \t#=";
constexpr char UNQUOTED_ENDS[] = " \t#";

// The value of a hexadecimal digit, or -1.
int HexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// "|xx" stands for the byte of that value. A bar without two digits stays.
char *Decode(std::string_view raw) {
    char *value = Mem_CopyText(raw.data(), raw.size());
    char *out = value;
    for (size_t i = 0; i < raw.size(); ++i) {
        const int high = raw[i] == '|' && i + 2 < raw.size() ? HexDigit(raw[i + 1]) : -1;
        const int low = high >= 0 ? HexDigit(raw[i + 2]) : -1;
        if (low >= 0) {
            *out++ = static_cast<char>(high * 16 + low);
            i += 2;
        } else {
            *out++ = raw[i];
        }
    }
    *out = '\0';
    return value;
}

// Takes the raw value, without its quotes, and moves behind it. False when a quote is not closed.
bool TakeValue(const char **cursor, std::string_view *raw) {
    const bool quoted = **cursor == '"';
    const char *start = quoted ? *cursor + 1 : *cursor;
    const char *end = start + strcspn(start, quoted ? "\"" : UNQUOTED_ENDS);
    if (quoted && *end == '\0') {
        return false;
    }
    *raw = std::string_view(start, static_cast<size_t>(end - start));
    *cursor = quoted ? end + 1 : end;
    return true;
}

}  // namespace

const char *DictionaryLine_SkipBlanks(const char *text) {
    return text + strspn(text, BLANKS);
}

DictionaryAssignment DictionaryLine_Split(const char *line) {
    const char *name = DictionaryLine_SkipBlanks(line);
    const size_t nameLength = strcspn(name, NAME_ENDS);
    const char *cursor = DictionaryLine_SkipBlanks(name + nameLength);
    if (nameLength == 0 || *cursor != '=') {
        return {};
    }
    cursor = DictionaryLine_SkipBlanks(cursor + 1);
    std::string_view raw;
    if (!TakeValue(&cursor, &raw)) {
        return {};
    }
    cursor = DictionaryLine_SkipBlanks(cursor);
    if (*cursor != '\0' && *cursor != '#') {
        return {};
    }
    return {MallocString(Mem_CopyText(name, nameLength)), MallocString(Decode(raw))};
}
