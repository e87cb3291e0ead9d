// The lengths that exported functions take and give through one pointer.
#pragma once

#include <cstdint>
#include <cstring>

// What a caller's length, or another number of its kind, holds; 0 when none was given.
inline uint32_t ValueOrZero(const uint32_t *number) {
    return number != nullptr ? *number : 0;
}

// What a caller gets on success: bytes, the terminator among them.
inline uint32_t LengthWithTerminator(const char *text) {
    return static_cast<uint32_t>(strlen(text) + 1);
}
