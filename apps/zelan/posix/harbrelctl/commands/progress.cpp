#include "apps/zelan/posix/harbrelctl/commands/progress.h"

#include <unistd.h>

#include <cstdio>

Progress::Progress(const std::string &what) : shown_(isatty(STDERR_FILENO) == 1) {
    if (shown_) {
        fprintf(stderr, "%s ", what.c_str());
    }
}

void Progress::Tick() const {
    if (shown_) {
        fputc('.', stderr);
    }
}

Progress::~Progress() {
    if (shown_) {
        fputs("\r\033[K", stderr);
    }
}
