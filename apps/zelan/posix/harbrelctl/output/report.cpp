#include "apps/zelan/posix/harbrelctl/output/report.h"

#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

bool stepsAside = false;

}  // namespace

void Complain(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    fputs("harbrelctl: ", stderr);
    vfprintf(stderr, format, arguments);
    fputc('\n', stderr);
    va_end(arguments);
}

void Tell(const char *format, ...) {
    FILE *const stream = stepsAside ? stderr : stdout;
    va_list arguments;
    va_start(arguments, format);
    vfprintf(stream, format, arguments);
    fputc('\n', stream);
    va_end(arguments);
    fflush(stream);
}

void SetStepsAside(bool aside) {
    stepsAside = aside;
}

bool Print(const char *text) {
    return fputs(text, stdout) >= 0;
}

int CloseOutput(int status) {
    if (fflush(stdout) == 0 && ferror(stdout) == 0) {
        return status;
    }
    Complain("standard output does not take the result: %s", strerror(errno));
    return status == STATUS_DONE ? STATUS_FAILED : status;
}

bool MayColour() {
    const char *const refused = getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) == 1 && (refused == nullptr || *refused == '\0');
}
