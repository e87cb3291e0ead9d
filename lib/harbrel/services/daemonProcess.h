// The process that becomes a daemon, from the fork to the exec.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include "lib/harbrel/base/hblLog.h"

constexpr int FIRST_FREE_FD = STDERR_FILENO + 1;

// What it needs, all of it made before the fork: in a child of a process with threads only what needs no lock
// is safe.
struct DaemonProcess {
    FunctionLog log;
    int readEnd;  // of the status pipe, both behind the standard descriptors
    int writeEnd;
    int logFd;  // -1: none
    char *const *arguments;
};

// The child's pid, or -1 with errno.
pid_t HBLForkDaemon(const DaemonProcess &task);
