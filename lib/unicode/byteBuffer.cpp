#include "lib/unicode/byteBuffer.h"

#include <algorithm>
#include <cstring>

#include "lib/fatal/memory.h"

char *ByteBuffer_Reserve(ByteBuffer *buffer, size_t count) {
    if (count > buffer->capacity - buffer->size) {
        const size_t capacity = std::max(buffer->capacity * 2, buffer->size + count);
        buffer->data.reset(static_cast<char *>(Mem_Realloc(buffer->data.release(), capacity)));
        buffer->capacity = capacity;
    }
    return buffer->data.get() + buffer->size;
}

void ByteBuffer_Append(ByteBuffer *buffer, const void *bytes, size_t count) {
    if (count != 0) {
        memcpy(ByteBuffer_Reserve(buffer, count), bytes, count);
        buffer->size += count;
    }
}

void ByteBuffer_EndText(ByteBuffer *buffer) {
    memset(ByteBuffer_Reserve(buffer, TEXT_END_BYTES), 0, TEXT_END_BYTES);
}
