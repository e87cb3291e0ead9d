#include "lib/string/utf8.h"

namespace {

constexpr uint32_t FIRST_SURROGATE = 0xD800;
constexpr uint32_t LAST_SURROGATE = 0xDFFF;
constexpr uint32_t LAST_CODE_POINT = 0x10FFFF;

struct ByteRange {
    unsigned char low;
    unsigned char high;
};

// What may follow a lead byte. The narrow ranges are what keeps overlong forms, surrogates and too large
// numbers out.
ByteRange SecondByteRange(unsigned char lead) {
    switch (lead) {
        case 0xE0:
            return {0xA0, 0xBF};
        case 0xED:
            return {0x80, 0x9F};
        case 0xF0:
            return {0x90, 0xBF};
        case 0xF4:
            return {0x80, 0x8F};
        default:
            return {0x80, 0xBF};
    }
}

}  // namespace

size_t Utf8_PromisedBytes(char lead) {
    const unsigned char byte = static_cast<unsigned char>(lead);
    if (byte >= 0xC0 && byte < 0xE0) {
        return 2;
    }
    if (byte >= 0xE0 && byte < 0xF0) {
        return 3;
    }
    return byte >= 0xF0 && byte < 0xF8 ? 4 : 1;
}

uint32_t Utf8_Decode(const char **text, const char *end) {
    const unsigned char lead = static_cast<unsigned char>(*(*text)++);
    if (lead < 0x80) {
        return lead;
    }
    if (lead < 0xC2 || lead > 0xF4) {
        return UTF8_INVALID;
    }
    const size_t promised = Utf8_PromisedBytes(static_cast<char>(lead));
    uint32_t codePoint = lead & (0x7Fu >> promised);
    ByteRange range = SecondByteRange(lead);
    for (size_t i = 1; i < promised; i++) {
        const unsigned char byte = *text != end ? static_cast<unsigned char>(**text) : 0;
        if (byte < range.low || byte > range.high) {
            return UTF8_INVALID;
        }
        codePoint = codePoint << 6 | (byte & 0x3Fu);
        (*text)++;
        range = {0x80, 0xBF};
    }
    return codePoint;
}

size_t Utf8_Encode(uint32_t codePoint, char out[UTF8_MAX_BYTES]) {
    if (codePoint < 0x80) {
        out[0] = static_cast<char>(codePoint);
        return 1;
    }
    if (codePoint > LAST_CODE_POINT || (codePoint >= FIRST_SURROGATE && codePoint <= LAST_SURROGATE)) {
        return 0;
    }
    const size_t count = codePoint < 0x800 ? 2 : codePoint < 0x10000 ? 3 : 4;
    for (size_t i = count - 1; i > 0; i--) {
        out[i] = static_cast<char>(0x80 | (codePoint & 0x3F));
        codePoint >>= 6;
    }
    out[0] = static_cast<char>((0xF00u >> count & 0xFFu) | codePoint);
    return count;
}

size_t Utf8_LengthWithoutCutCharacter(const char *text, size_t length) {
    size_t lead = length;
    while (lead > 0 && Utf8_IsContinuation(text[lead - 1])) {
        lead--;
    }
    if (lead == 0) {
        return length;
    }
    lead--;
    return Utf8_PromisedBytes(text[lead]) > length - lead ? lead : length;
}
