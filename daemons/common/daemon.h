// What the library expects of every daemon: it ends its foreground process soon, writes its process id to the
// PID file and then reports through a pipe; SIGKILL is its stop, and what it made must vanish all the same.
#pragma once

#include <sys/types.h>

#include <vector>

// The arguments that every daemon is given.
struct DaemonContract {
    int statusDescriptor = -1;
    const char *pidFile = nullptr;  // points into argv
};

// What the kernel does not remove by itself when a daemon dies.
struct CleanUp {
    int network = -1;          // whose switch it used; -1 for none
    std::vector<int> links;    // indexes of interfaces that it made
    int hostInterface = 0;     // index of the one that is the host's own on the network, 0 for none
    void (*rest)() = nullptr;  // removes what else there is; null for nothing
};

// Reads the arguments of -s and -d. False after a line in the log, also when the descriptor is not open.
bool Daemon_ReadContract(const char *statusText, const char *pidFile, DaemonContract *contract);

// Sheds what the starter handed down by chance: every descriptor but 0 to 2 and the pipe's. Call before any
// file is opened.
void Daemon_ShedInherited(const DaemonContract &contract);

// Splits the process once everything is up: returns in the daemon, which has a session of its own; the
// foreground process starts the watcher (if there is anything to clean up), writes the PID file, reports and
// ends. When one of these steps fails the daemon is killed and its traces are removed, and nothing is
// reported.
void Daemon_Detach(const DaemonContract &contract, const CleanUp &cleanUp);

// The pieces of Daemon_Detach, for a daemon whose work is done by a foreign program.
//
// Starts a second process that waits for the end of the daemon, a child of the caller, and then cleans up.
bool Daemon_StartWatcher(pid_t daemon, const CleanUp &cleanUp);
// Writes "<pid>" and a line end, so that a reader sees the old file or the new one and nothing between.
bool Daemon_WritePidFile(const char *path, pid_t daemon);
// Tells the starter that the daemon is up, and lets go of the pipe.
void Daemon_Report(const DaemonContract &contract);
// Cleans up behind a start that fails before there is a watcher. It happens in a process of its own, since
// the starter waits for the caller's end.
void Daemon_CleanUpAfterFailure(const CleanUp &cleanUp);
