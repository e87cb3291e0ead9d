// Starting a daemon as the library does, with a status pipe and its output in a log file.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "tests/support/netns.h"

// What a log says, but for the ports that a kernel before Linux 6.7 cannot keep out of reach.
std::string LogOfDaemons(const std::string &path);

struct DaemonStart {
    int status = -1;     // of the foreground process
    std::string report;  // what came through the pipe
    pid_t pid = 0;       // from the PID file, 0 without one
    std::string pidFile;
    std::string logFile;

    bool CameUp() const { return report.size() == 2 && pid > 0; }
    std::string Log() const { return LogOfDaemons(logFile); }
};

std::ostream &operator<<(std::ostream &stream, const DaemonStart &start);

// Runs <build>/bin/<program> -s W -d PIDFILE and the other arguments and waits, at most ten seconds, for the
// end of the foreground process and of the pipe. PID file and log are named after `name`.
DaemonStart StartDaemon(const std::string &program, const std::string &name,
                        const std::vector<std::string> &arguments);

// The whole argument vector given, in which "{W}" stands for the pipe's number. The program may run under
// another one, whose words go before it.
DaemonStart StartDaemonWith(const std::string &program, const std::string &pidFile,
                            const std::vector<std::string> &arguments, const std::string &under = "");

// The same start, which must have succeeded.
DaemonStart MustComeUp(DaemonStart start);

// Stops a daemon as the library does: SIGKILL, without waiting for its end.
void KillDaemon(const DaemonStart &start);

// Starts zelan-netifup for network N with the device node made, and the interface zelan<N>.
DaemonStart StartNetifup(int network);

// Whether the packet filter knows the two guests on network 8, by its switch or each by its port, which takes
// a moment.
bool BothGuestsAreKnown();

// What daemons have not yet taken away: interfaces, namespaces of no Machine, processes, filter tables and
// files that tell of them.
std::string LeftOver();
inline bool NothingIsLeft() {
    return LeftOver().empty();
}
