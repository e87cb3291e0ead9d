#include "lib/misc/msgFmtConversion.h"

#include <climits>
#include <cstring>

namespace {

constexpr std::string_view LETTERS = "ACEFGSXacdefginopsux";
constexpr std::string_view FLAGS = "#-+ '0";
constexpr std::string_view BETWEEN = "0123456789.#- +'LZhltzqjI";

// The largest position; the same limit as the C library's (NL_ARGMAX).
constexpr int MAX_POSITION = 4096;

struct SizeName {
    std::string_view text;
    char size;
};
// A name stands before every other name that it begins with.
constexpr SizeName SIZE_NAMES[] = {
    {"hh", 'H'}, {"h", 'h'}, {"ll", 'L'}, {"l", 'l'},   {"L", 'L'},   {"q", 'L'}, {"j", 'j'},
    {"t", 't'},  {"z", 'z'}, {"Z", 'z'},  {"I64", 'L'}, {"I32", '_'}, {"I", 'z'},
};

struct TypeRule {
    std::string_view letters;
    std::string_view sizes;
    MsgFmtArgType type;
};
constexpr TypeRule TYPE_RULES[] = {
    {"dioxuX", "_hH", MSGFMT_ARG_INT32},    {"dioxuX", "lLjtz", MSGFMT_ARG_INT64},
    {"cC", MSGFMT_SIZES, MSGFMT_ARG_INT32}, {"efgaEFGA", "_hHltz", MSGFMT_ARG_FLOAT64},
    {"p", MSGFMT_SIZES, MSGFMT_ARG_PTR64},  {"s", "_hHtz", MSGFMT_ARG_STRING8},
    {"s", "lLj", MSGFMT_ARG_STRING32},      {"S", MSGFMT_SIZES, MSGFMT_ARG_STRING32},
};

bool Contains(std::string_view set, char c) {
    return c != '\0' && set.find(c) != std::string_view::npos;
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Takes decimal digits, possibly none, which count as 0. False when the number exceeds `limit`.
bool TakeNumber(const char **cursor, int limit, int *number) {
    int value = 0;
    for (; IsDigit(**cursor); ++*cursor) {
        const int digit = **cursor - '0';
        if (value > (limit - digit) / 10) {
            return false;
        }
        value = value * 10 + digit;
    }
    *number = value;
    return true;
}

// Takes "<digits>$" if it stands at the cursor. False for a position out of range.
bool TakePosition(const char **cursor, MsgFmtConversion *conversion) {
    const char *start = *cursor;
    const char *end = start;
    while (IsDigit(*end)) {
        ++end;
    }
    if (*start == '0' || end == start || *end != '$') {
        return true;
    }
    conversion->position = std::string_view(start, static_cast<size_t>(end - start));
    if (!TakeNumber(cursor, MAX_POSITION, &conversion->number)) {
        return false;
    }
    *cursor = end + 1;
    return true;
}

MsgFmtPiece TakeConversion(const char **cursor) {
    MsgFmtPiece piece = {MSGFMT_PIECE_BAD, {}, {{}, {}, {}, 0, -1, '_', '\0'}};
    if (!TakePosition(cursor, &piece.conversion)) {
        return piece;
    }
    const char *start = *cursor;
    const char *end = start;
    while (Contains(BETWEEN, *end)) {
        ++end;
    }
    if (Contains(LETTERS, *end)) {
        piece.kind = MSGFMT_PIECE_CONVERSION;
        piece.conversion.body = std::string_view(start, static_cast<size_t>(end + 1 - start));
        *cursor = end + 1;
    }
    return piece;
}

char TakeSize(const char **cursor, const char *end) {
    const std::string_view rest(*cursor, static_cast<size_t>(end - *cursor));
    for (const SizeName &name : SIZE_NAMES) {
        if (rest.substr(0, name.text.size()) == name.text) {
            *cursor += name.text.size();
            return name.size;
        }
    }
    return '_';
}

}  // namespace

MsgFmtPiece MsgFmt_NextPiece(const char **cursor) {
    const char *start = *cursor;
    if (*start == '\0') {
        return {MSGFMT_PIECE_END, {}, {}};
    }
    if (*start != '%') {
        const size_t length = strcspn(start, "%");
        *cursor = start + length;
        return {MSGFMT_PIECE_TEXT, std::string_view(start, length), {}};
    }
    if (start[1] == '%') {
        *cursor = start + 2;
        return {MSGFMT_PIECE_TEXT, std::string_view(start, 1), {}};
    }
    *cursor = start + 1;
    return TakeConversion(cursor);
}

MsgFmtStatus MsgFmt_Analyse(MsgFmtConversion *conversion) {
    const char *cursor = conversion->body.data();
    const char *letter = cursor + conversion->body.size() - 1;
    while (Contains(FLAGS, *cursor)) {
        ++cursor;
    }
    int width = 0;
    if (!TakeNumber(&cursor, INT_MAX, &width)) {
        return MSGFMT_BAD_FORMAT;
    }
    conversion->precision = -1;
    if (*cursor == '.') {
        ++cursor;
        if (!TakeNumber(&cursor, INT_MAX, &conversion->precision)) {
            return MSGFMT_BAD_FORMAT;
        }
    }
    conversion->layout = conversion->body.substr(0, static_cast<size_t>(cursor - conversion->body.data()));
    conversion->size = TakeSize(&cursor, letter);
    conversion->letter = *letter;
    return cursor == letter ? MSGFMT_OK : MSGFMT_BAD_FORMAT;
}

MsgFmtArgType MsgFmt_ArgTypeOf(const MsgFmtConversion &conversion) {
    for (const TypeRule &rule : TYPE_RULES) {
        if (Contains(rule.letters, conversion.letter) && Contains(rule.sizes, conversion.size)) {
            return rule.type;
        }
    }
    return MSGFMT_ARG_INVALID;
}
