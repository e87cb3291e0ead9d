// Reading of lines, shared by the database and the dictionary readers.
#pragma once

#include <cstddef>
#include <cstdio>

enum ReadLineResult : int {
    READ_LINE_ERROR = 0,  // the reason stands in errno
    READ_LINE_EOF = 1,
    READ_LINE_OK = 2,
};

// No limit on the length of a line.
constexpr size_t READ_LINE_NO_LIMIT = ~static_cast<size_t>(0);

// Reads one line, without its end, into a fresh NUL-terminated buffer that the caller frees. A line ends with
// a line feed, a carriage return, or both; the last one may have no end. The buffer starts at 1024 bytes and
// doubles; the limit is looked at only when it must grow, and too long a line fails with errno E2BIG.
// `length` may be null.
ReadLineResult ReadNextLine(FILE *stream, char **line, size_t limit, size_t *length);
