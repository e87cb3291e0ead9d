// What a daemon can still do once everything is set up: nothing but its work.
#pragma once

#include <cstdint>
#include <span>

// A file or a whole folder that stays reachable.
struct ReachablePath {
    const char *path;
    bool write = false;  // besides reading; in a folder also making and removing files
    bool execute = false;
};

// What is left to the process. The defaults leave nothing.
struct Confinement {
    // CAP_
    std::span<const int> capabilities = {};
    // Runs as the user `harbrel`, or as nobody on a host without it.
    bool ownUser = true;
    // The only system calls (SYS_) besides those of every process (memory, clocks, its end; read, write, poll
    // and close); all others fail with EPERM. Empty: all are left. Built for a sanitizer no call is refused.
    std::span<const int> systemCalls = {};
    // For what executes a program of somebody else next, whose calls are not ours to list: it keeps all but
    // those that reach other processes, other namespaces, the kernel's own workings, or what is noted about
    // files rather than in them. Those fail with EPERM, also for root.
    bool foreignProgram = false;
    // With `files` no file can be opened but these, and if `tcp` is set as well no TCP port connected to but
    // these and none listened on. Sockets and files that are open stay so. A file is meant as it is now: one
    // that takes its name later is another; name the folder for such.
    bool files = false;
    std::span<const ReachablePath> paths = {};
    bool tcp = false;
    std::span<const uint16_t> tcpPorts = {};
};

// Confines the calling process for good, with all that it starts. It must have one thread and hold CAP_SETUID
// and CAP_SETGID. What this kernel or host does not have costs a line in the log, and the rest holds all the
// same. False, after such a line, when the process could not even change its user or give its capabilities
// up.
bool Confine(const Confinement &confinement);
