#include "daemons/common/complain.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

void Complain(const char *format, ...) {
    char line[1024];
    int length = snprintf(line, sizeof line, "%s - ", program_invocation_short_name);
    va_list arguments;
    va_start(arguments, format);
    length += vsnprintf(line + length, sizeof line - static_cast<size_t>(length), format, arguments);
    va_end(arguments);
    size_t used = std::min(static_cast<size_t>(length), sizeof line - 1);
    line[used] = '\n';
    (void)!write(STDERR_FILENO, line, used + 1);
}
