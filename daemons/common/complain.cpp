#include "daemons/common/complain.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

namespace {

void WriteLine(int descriptor, const char *format, va_list arguments) {
    int errorBefore = errno;
    char line[1024];
    int length = snprintf(line, sizeof line, "%.255s - ", program_invocation_short_name);
    length += vsnprintf(line + length, sizeof line - static_cast<size_t>(length), format, arguments);
    size_t used = std::min(static_cast<size_t>(length), sizeof line - 1);
    line[used] = '\n';
    (void)!write(descriptor, line, used + 1);
    errno = errorBefore;
}

}  // namespace

void Complain(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    WriteLine(STDERR_FILENO, format, arguments);
    va_end(arguments);
}

void Tell(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    WriteLine(STDOUT_FILENO, format, arguments);
    va_end(arguments);
}
