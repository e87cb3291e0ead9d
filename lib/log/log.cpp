#include "lib/log/log.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>

namespace {

constexpr size_t LOG_LINE_SIZE = 4096;

struct LogState {
    int fd = -1;
    bool quiet = true;
    bool enabled = false;
};

LogState logState;

void WriteAll(int fd, const char *text, size_t length) {
    while (length > 0) {
        const ssize_t written = write(fd, text, length);
        if (written <= 0) {
            return;
        }
        text += written;
        length -= static_cast<size_t>(written);
    }
}

size_t FormatLine(char (&line)[LOG_LINE_SIZE], const char *format, va_list args) {
    const int length = vsnprintf(line, sizeof line, format, args);
    if (length < 0) {
        return 0;
    }
    const size_t wanted = static_cast<size_t>(length);
    return wanted < sizeof line ? wanted : sizeof line - 1;
}

}  // namespace

void Log(const char *format, ...) {
    if (!logState.enabled) {
        return;
    }
    char line[LOG_LINE_SIZE];
    va_list args;
    va_start(args, format);
    const size_t length = FormatLine(line, format, args);
    va_end(args);
    WriteAll(logState.fd, line, length);
}

void Warning(const char *format, ...) {
    char line[LOG_LINE_SIZE];
    va_list args;
    va_start(args, format);
    const size_t length = FormatLine(line, format, args);
    va_end(args);
    if (logState.enabled) {
        WriteAll(logState.fd, line, length);
    }
    if (!logState.quiet) {
        WriteAll(STDERR_FILENO, line, length);
    }
}
