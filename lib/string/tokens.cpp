#include "lib/string/tokens.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "lib/fatal/memory.h"
#include "lib/misc/owners.h"

namespace {

bool ParseWholeNumber(const char *text, long long *value) {
    char *end = nullptr;
    const int savedErrno = errno;
    errno = 0;
    const long long parsed = strtoll(text, &end, NumberBase(text));
    const bool converted = errno == 0 && end != text && *end == '\0';
    errno = savedErrno;
    if (!converted || parsed < INT32_MIN || parsed > UINT32_MAX) {
        return false;
    }
    *value = parsed;
    return true;
}

}  // namespace

int NumberBase(const char *text) {
    while (isspace(static_cast<unsigned char>(*text))) {
        text++;
    }
    if (*text == '+' || *text == '-') {
        text++;
    }
    if (*text != '0') {
        return 10;
    }
    return text[1] == 'x' || text[1] == 'X' ? 16 : 8;
}

char *GetNextToken(unsigned *index, const char *text, const char *delimiters) {
    const char *start = text + *index;
    start += strspn(start, delimiters);
    const size_t length = strcspn(start, delimiters);
    *index = static_cast<unsigned>(start - text + static_cast<ptrdiff_t>(length));
    return length != 0 ? Mem_CopyText(start, length) : nullptr;
}

bool GetNextUintToken(uint32_t *value, unsigned *index, const char *text, const char *delimiters) {
    const MallocString token(GetNextToken(index, text, delimiters));
    return token != nullptr && StrToUint(value, token.get());
}

bool GetNextIntToken(int32_t *value, unsigned *index, const char *text, const char *delimiters) {
    const MallocString token(GetNextToken(index, text, delimiters));
    return token != nullptr && StrToInt(value, token.get());
}

bool StrToUint(uint32_t *value, const char *text) {
    long long parsed = 0;
    if (!ParseWholeNumber(text, &parsed)) {
        return false;
    }
    *value = static_cast<uint32_t>(parsed);
    return true;
}

bool StrToInt(int32_t *value, const char *text) {
    uint32_t parsed = 0;
    if (!StrToUint(&parsed, text)) {
        return false;
    }
    *value = static_cast<int32_t>(parsed);
    return true;
}
