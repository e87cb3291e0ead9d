// What a daemon leaves behind when it dies, as zelan-watch has to know it. The record of every daemon is a
// file in WATCH_FOLDER named after its duty, so that it outlives the watcher, too.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "daemons/common/service.h"

// Of root alone; holds the records, the watcher's socket and the locks of the daemons.
inline constexpr char WATCH_FOLDER[] = "/run/zelan";

// What the kernel does not remove by itself when a daemon dies. The network's switch goes by itself once
// nobody needs it.
struct CleanUp {
    std::vector<int> links;  // indexes of interfaces that it made
    int hostInterface = 0;   // index of the one that is the host's own on the network, 0 for none
    int filters = -1;        // the network whose filters it may have on adapters (bridgefilter), -1 for none
};

struct Traces {
    pid_t process = 0;
    uint64_t startTime = 0;  // with the process id it tells a process from all others, see Process_StartTime
    std::string pidFile;
    CleanUp cleanUp;
};

// When a process was started, in clock ticks since the host was; 0 when there is none or it cannot be seen.
uint64_t Process_StartTime(pid_t process);

std::string Traces_Text(const Traces &traces);
// False for a text that is no record.
bool Traces_Parse(std::string_view text, Traces *traces);

// The record's path, and the duty that a file of that folder is the record of; false when it is none.
std::string Traces_Path(const Duty &duty);
bool Traces_IsRecord(std::string_view fileName, Duty *duty);
