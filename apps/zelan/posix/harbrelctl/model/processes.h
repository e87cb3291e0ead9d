// A daemon's process, told by /proc.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

struct Process {
    pid_t pid = 0;
    std::string program;                 // the executable's path; empty when it cannot be read
    std::vector<std::string> arguments;  // argv, the program's own name first
    double started = 0;                  // seconds since the epoch
};

// The number in a PID file; nothing without a file or a number above 0.
std::optional<pid_t> PidIn(const std::string &path);

// Nothing when no process has this number, or only one that has died and is not reaped.
std::optional<Process> ProcessOf(pid_t pid);
