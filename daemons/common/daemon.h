// What the library expects of every daemon: it ends its foreground process soon, writes its process id to the
// PID file and then reports through a pipe; SIGKILL is its stop, and what it made must vanish all the same.
#pragma once

#include <sys/types.h>

#include <span>

#include "daemons/common/service.h"
#include "daemons/common/traces.h"
#include "lib/misc/owners.h"

// The arguments that every daemon is given; the texts point into argv.
struct DaemonContract {
    const char *statusText = nullptr;
    const char *pidFile = nullptr;
    int statusDescriptor = -1;  // the number in statusText

    Duty duty;                    // set by Daemon_Claim
    FileDescriptor watch = {};    // the connection to zelan-watch, open until the report
    FileDescriptor goAhead = {};  // between Daemon_Fork and Daemon_LetGo
    bool isRecorded = false;      // zelan-watch has been told what there is to clean up
};

// Tests the two texts of a contract, and sheds what the starter handed down by chance: every descriptor but 0
// to 2 and the pipe's, and see StartersLegacy_Shed. Call before any file is opened, with the capabilities
// (CAP_) that the daemon ever needs, CAP_KILL among them for one that changes its user: the foreground
// process must be able to end it. False after a line in the log, also when the pipe's descriptor is not open
// or zelan-watch cannot be reached.
bool Daemon_TakeContract(DaemonContract *contract, std::span<const int> capabilities);

// Takes the service of a network over, before anything is made for it: what a dead predecessor has left is
// put aside, a living one is not disturbed, and the network's switch stays from now on for as long as this
// daemon lives. The network is -1 for a service of the whole host. False after a line in the log.
bool Daemon_Claim(DaemonContract *contract, Service service, int network);

// Ends a start that fails; zelan-watch cleans up behind it.
[[noreturn]] void Daemon_GiveUp(DaemonContract *contract, const CleanUp &cleanUp);

// Splits the process once everything is up: returns in the daemon, which has a session of its own; the
// foreground process has it guarded, writes the PID file, reports and ends. When one of these steps fails the
// daemon ends and its traces are removed, and nothing is reported.
void Daemon_Detach(DaemonContract *contract, const CleanUp &cleanUp);

// The pieces of Daemon_Detach, for a daemon whose work is done by a foreign program.
//
// Forks the daemon, which begins once it is guarded and named: it waits for Daemon_LetGo, and ends by itself
// when the caller ends or fails before that. Returns 0 in the daemon, which is in the root folder, in a
// session of its own and without a standard input; -1 after a line in the log.
pid_t Daemon_Fork(DaemonContract *contract);
// Has zelan-watch wait for the end of the daemon, and then clean up and remove the PID file; writes that file
// and lets the daemon begin. False after a line in the log; the daemon then ends.
bool Daemon_LetGo(DaemonContract *contract, pid_t daemon, const CleanUp &cleanUp);
// Ends a daemon that was let go and does not come up, with its PID file.
void Daemon_End(const DaemonContract &contract, pid_t daemon);
// Tells the starter that the daemon is up, and lets go of the pipe.
void Daemon_Report(DaemonContract *contract);
