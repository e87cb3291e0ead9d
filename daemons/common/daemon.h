// What the library expects of every daemon: it ends its foreground process soon, writes its process id to the
// PID file and then reports through a pipe; SIGKILL is its stop, and what it made must vanish all the same.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "daemons/common/switch.h"

// What a daemon does for its network; one of each kind serves a network at a time.
enum class Service : uint8_t { BRIDGE, NETIFUP, DHCP, NAT, DETECT };

// The arguments that every daemon is given; the texts point into argv.
struct DaemonContract {
    const char *statusText = nullptr;
    const char *pidFile = nullptr;
    int statusDescriptor = -1;  // the number in statusText

    // Set by Daemon_Claim.
    Service service = Service::DETECT;
    int network = -1;  // -1 for the host as a whole
    std::optional<SwitchLock> lock;
    SwitchUse use;
};

// What the kernel does not remove by itself when a daemon dies: plain data, since another process removes it.
// The network's switch goes by itself once nobody needs it.
struct CleanUp {
    std::vector<int> links;    // indexes of interfaces that it made
    int hostInterface = 0;     // index of the one that is the host's own on the network, 0 for none
    std::string nat;           // the network's share in the host's packet filter, as text; empty for none
    void (*rest)() = nullptr;  // removes what else there is; null for nothing
};

// Tests the two texts of a contract, and sheds what the starter handed down by chance: every descriptor but 0
// to 2 and the pipe's, and see StartersLegacy_Shed. Call before any file is opened, with the capabilities
// (CAP_) that the daemon ever needs. False after a line in the log, also when the pipe's descriptor is not
// open.
bool Daemon_TakeContract(DaemonContract *contract, std::span<const int> capabilities);

// Takes the service of a network over, before anything is made for it: what a dead predecessor has left is
// cleaned up, a living one is not disturbed, and the network's switch stays from now on for as long as this
// daemon lives. False after a line in the log.
bool Daemon_Claim(DaemonContract *contract, Service service, int network);

// Ends a start that fails before there is a watcher, and cleans up behind it. That happens in a process of
// its own, since the starter waits for the caller's end.
[[noreturn]] void Daemon_GiveUp(DaemonContract *contract, const CleanUp &cleanUp);

// Splits the process once everything is up: returns in the daemon, which has a session of its own; the
// foreground process has it guarded, writes the PID file, reports and ends. When one of these steps fails the
// daemon is killed and its traces are removed, and nothing is reported.
void Daemon_Detach(DaemonContract *contract, const CleanUp &cleanUp);

// The pieces of Daemon_Detach, for a daemon whose work is done by a foreign program.
//
// Has somebody wait for the end of the daemon, a child of the caller, and then clean up. False after a line
// in the log; the daemon is then to be killed.
bool Daemon_Guard(DaemonContract *contract, pid_t daemon, const CleanUp &cleanUp);
// Tells the starter that the daemon is up, and lets go of the pipe.
void Daemon_Report(DaemonContract *contract);
