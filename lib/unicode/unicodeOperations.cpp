#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "lib/fatal/memory.h"
#include "lib/string/utf16.h"
#include "lib/unicode/caseFold.h"
#include "lib/unicode/codeset.h"

namespace {

constexpr ptrdiff_t NOT_FOUND = -1;

struct Range {
    size_t start;
    size_t length;
};

// What a caller's start and length mean in a text of `size` bytes.
Range PinRange(size_t size, ptrdiff_t start, ptrdiff_t length) {
    const size_t from = start < 0 ? size : std::min(static_cast<size_t>(start), size);
    const size_t rest = size - from;
    return {from, length < 0 ? rest : std::min(static_cast<size_t>(length), rest)};
}

std::string_view RangeOf(const char *text, ptrdiff_t start, ptrdiff_t length) {
    const std::string_view whole = text;
    const Range range = PinRange(whole.size(), start, length);
    return whole.substr(range.start, range.length);
}

ptrdiff_t OffsetIn(const char *text, std::string_view range, size_t found) {
    return found == std::string_view::npos ? NOT_FOUND : range.data() - text + static_cast<ptrdiff_t>(found);
}

bool ToUtf16(std::string_view text, std::u16string *units) {
    ByteBuffer bytes;
    constexpr StringEncoding NATIVE =
        __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? STRING_ENCODING_UTF16_BE : STRING_ENCODING_UTF16_LE;
    if (!CodeSet_Convert(STRING_ENCODING_UTF8, text.data(), text.size(), NATIVE, CODESET_STOP, &bytes)) {
        return false;
    }
    units->resize(bytes.size / sizeof(char16_t));
    memcpy(units->data(), bytes.data.get(), units->size() * sizeof(char16_t));
    return true;
}

// The folded unit at an index, or the whole code point when the unit is half of a pair.
uint32_t CodePointAt(const std::u16string &units, size_t index, bool ignoreCase) {
    const size_t lead = Utf16_IsTrail(units[index]) && index > 0 ? index - 1 : index;
    if (Utf16_IsLead(units[lead]) && Utf16_IsTrail(units[lead + 1])) {
        return Utf16_Join(units[lead], units[lead + 1]);
    }
    return ignoreCase ? CaseFold_Unit(units[index]) : units[index];
}

int CompareUnits(const std::u16string &text, const std::u16string &other, bool ignoreCase) {
    const auto isSame = [ignoreCase](char16_t one, char16_t two) {
        return ignoreCase ? CaseFold_Unit(one) == CaseFold_Unit(two) : one == two;
    };
    const auto [at, otherAt] = std::mismatch(text.begin(), text.end(), other.begin(), other.end(), isSame);
    if (at == text.end() || otherAt == other.end()) {
        return at != text.end() ? 1 : otherAt != other.end() ? -1 : 0;
    }
    const size_t index = static_cast<size_t>(at - text.begin());
    return CodePointAt(text, index, ignoreCase) < CodePointAt(other, index, ignoreCase) ? -1 : 1;
}

}  // namespace

char *Unicode_Substr(const char *text, ptrdiff_t start, ptrdiff_t length) {
    const std::string_view range = RangeOf(text, start, length);
    return Mem_CopyText(range.data(), range.size());
}

char *Unicode_ReplaceRange(const char *dest, ptrdiff_t destStart, ptrdiff_t destLength, const char *src,
                           ptrdiff_t srcStart, ptrdiff_t srcLength) {
    std::string replaced = dest;
    const Range range = PinRange(replaced.size(), destStart, destLength);
    replaced.replace(range.start, range.length, RangeOf(src, srcStart, srcLength));
    return Mem_CopyText(replaced.data(), replaced.size());
}

ptrdiff_t Unicode_FindSubstrInRange(const char *text, ptrdiff_t start, ptrdiff_t length, const char *sought,
                                    ptrdiff_t soughtStart, ptrdiff_t soughtLength) {
    const std::string_view range = RangeOf(text, start, length);
    return OffsetIn(text, range, range.find(RangeOf(sought, soughtStart, soughtLength)));
}

ptrdiff_t Unicode_FindLastSubstrInRange(const char *text, ptrdiff_t start, ptrdiff_t length,
                                        const char *sought, ptrdiff_t soughtStart, ptrdiff_t soughtLength) {
    const std::string_view range = RangeOf(text, start, length);
    const std::string_view wanted = RangeOf(sought, soughtStart, soughtLength);
    return OffsetIn(text, range, wanted.empty() ? 0 : range.rfind(wanted));
}

int Unicode_CompareRange(const char *text, ptrdiff_t start, ptrdiff_t length, const char *other,
                         ptrdiff_t otherStart, ptrdiff_t otherLength, bool ignoreCase) {
    std::u16string units;
    std::u16string otherUnits;
    if (!ToUtf16(RangeOf(text, start, length), &units) ||
        !ToUtf16(RangeOf(other, otherStart, otherLength), &otherUnits)) {
        return -1;
    }
    return CompareUnits(units, otherUnits, ignoreCase);
}
