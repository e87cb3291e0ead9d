#include "lib/string/lineReader.h"

#include <cerrno>
#include <cstdlib>

#include "lib/misc/owners.h"

namespace {

constexpr size_t FIRST_CAPACITY = 1024;

struct LineBuffer {
    MallocString text;
    size_t length = 0;
    size_t capacity = 0;
};

// Makes room for one more byte. The limit counts only here, so a line may pass it by what the buffer still
// had room for.
bool EnsureRoom(LineBuffer *line, size_t limit) {
    if (line->length < line->capacity) {
        return true;
    }
    if (line->capacity != 0 && line->length > limit) {
        errno = E2BIG;
        return false;
    }
    const size_t capacity = line->capacity != 0 ? line->capacity * 2 : FIRST_CAPACITY;
    char *grown = static_cast<char *>(realloc(line->text.get(), capacity));
    if (grown == nullptr) {
        return false;
    }
    line->text.release();
    line->text.reset(grown);
    line->capacity = capacity;
    return true;
}

// A line feed behind a carriage return belongs to the same line end. An end of the stream met while looking
// is forgotten: the next call meets it again.
void SkipLineFeed(FILE *stream) {
    const int next = getc_unlocked(stream);
    if (next == '\n') {
        return;
    }
    if (next != EOF) {
        ungetc(next, stream);
    }
    clearerr(stream);
}

}  // namespace

ReadLineResult ReadNextLine(FILE *stream, char **line, size_t limit, size_t *length) {
    LineBuffer buffer;
    int byte = 0;
    while ((byte = getc_unlocked(stream)) != EOF && byte != '\n' && byte != '\r') {
        if (!EnsureRoom(&buffer, limit)) {
            return READ_LINE_ERROR;
        }
        buffer.text.get()[buffer.length++] = static_cast<char>(byte);
    }
    if (byte == EOF && ferror(stream) != 0) {
        return READ_LINE_ERROR;
    }
    if (byte == EOF && buffer.length == 0) {
        return READ_LINE_EOF;
    }
    if (byte == '\r') {
        SkipLineFeed(stream);
    }
    if (!EnsureRoom(&buffer, limit)) {
        return READ_LINE_ERROR;
    }
    buffer.text.get()[buffer.length] = '\0';
    if (length != nullptr) {
        *length = buffer.length;
    }
    *line = buffer.text.release();
    return READ_LINE_OK;
}
