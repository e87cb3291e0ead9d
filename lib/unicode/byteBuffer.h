// A buffer from malloc that grows with what is appended. Running out of memory stops the process.
#pragma once

#include <cstddef>

#include "lib/misc/owners.h"

struct ByteBuffer {
    MallocBlock<char> data;
    size_t size = 0;
    size_t capacity = 0;
};

// Room for at least `count` more bytes behind the present ones; the place where they go.
char *ByteBuffer_Reserve(ByteBuffer *buffer, size_t count);
void ByteBuffer_Append(ByteBuffer *buffer, const void *bytes, size_t count);

// Converted text ends in this many NUL bytes, enough for any width of character; `size` does not count them.
constexpr size_t TEXT_END_BYTES = 4;
void ByteBuffer_EndText(ByteBuffer *buffer);
