// What the library expects of every daemon: it ends its foreground process soon, writes its process id to the
// PID file and then reports through a pipe; SIGKILL is its stop, and what it made must vanish all the same.
#pragma once

#include <sys/types.h>

#include <vector>

// The arguments that every daemon is given; the texts point into argv.
struct DaemonContract {
    const char *statusText = nullptr;
    const char *pidFile = nullptr;
    int statusDescriptor = -1;  // the number in statusText
};

// What the kernel does not remove by itself when a daemon dies.
struct CleanUp {
    int network = -1;          // whose switch it used; -1 for none
    std::vector<int> links;    // indexes of interfaces that it made
    int hostInterface = 0;     // index of the one that is the host's own on the network, 0 for none
    void (*rest)() = nullptr;  // removes what else there is; null for nothing
};

// Tests the two texts of a contract, and sheds what the starter handed down by chance: every descriptor but 0
// to 2 and the pipe's. Call before any file is opened. False after a line in the log, also when the pipe's
// descriptor is not open.
bool Daemon_TakeContract(DaemonContract *contract);

// Ends a start that fails before there is a watcher, and cleans up behind it. That happens in a process of
// its own, since the starter waits for the caller's end.
[[noreturn]] void Daemon_GiveUp(const CleanUp &cleanUp);

// Splits the process once everything is up: returns in the daemon, which has a session of its own; the
// foreground process starts the watcher (if there is anything to clean up), writes the PID file, reports and
// ends. When one of these steps fails the daemon is killed and its traces are removed, and nothing is
// reported.
void Daemon_Detach(const DaemonContract &contract, const CleanUp &cleanUp);

// The pieces of Daemon_Detach, for a daemon whose work is done by a foreign program.
//
// Starts a second process that waits for the end of the daemon, a child of the caller, and then cleans up.
bool Daemon_StartWatcher(pid_t daemon, const CleanUp &cleanUp);
// Tells the starter that the daemon is up, and lets go of the pipe.
void Daemon_Report(const DaemonContract &contract);
