// Code points and their UTF-8 form: the one place that knows which byte sequences are valid.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr uint32_t UTF8_INVALID = 0xFFFFFFFFu;
constexpr size_t UTF8_MAX_BYTES = 4;

constexpr bool Utf8_IsContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// The bytes that a lead byte promises, itself included; 1 for a byte that leads nothing.
size_t Utf8_PromisedBytes(char lead);

// The code point at *text, which then points behind it; at least one byte must be left before `end`.
// Overlong forms, surrogates and numbers above 0x10FFFF are invalid: UTF8_INVALID, and *text moves over the
// longest start of a sequence that was valid, one byte at the least.
uint32_t Utf8_Decode(const char **text, const char *end);

// Writes 1 to 4 bytes and returns their number; 0 when the number is no code point of a character.
size_t Utf8_Encode(uint32_t codePoint, char out[UTF8_MAX_BYTES]);

// The length of a cut text without the character that the cut left incomplete at its end.
size_t Utf8_LengthWithoutCutCharacter(const char *text, size_t length);
