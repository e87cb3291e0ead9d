#include "apps/zelan/posix/harbrelctl/model/processes.h"

#include <unistd.h>

#include <climits>
#include <ctime>
#include <fstream>
#include <sstream>

#include "apps/zelan/posix/harbrelctl/model/address.h"

namespace {

std::string FirstLine(const std::string &path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

double Now(clockid_t clock) {
    constexpr double NANOSECONDS = 1e9;
    timespec now = {};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / NANOSECONDS;
}

// Start times count from the boot.
double BootTime() {
    return Now(CLOCK_REALTIME) - Now(CLOCK_BOOTTIME);
}

// From the state on; the name before it may hold anything.
std::istringstream StatusWords(const std::string &folder) {
    const std::string line = FirstLine(folder + "stat");
    const size_t end = line.rfind(") ");
    return std::istringstream(end == std::string::npos ? "" : line.substr(end + 2));
}

}  // namespace

std::optional<pid_t> PidIn(const std::string &path) {
    const std::string line = FirstLine(path);
    const std::optional<uint32_t> number = ParseNumber(line, INT_MAX);
    return number && *number > 0 ? std::optional(static_cast<pid_t>(*number)) : std::nullopt;
}

std::optional<Process> ProcessOf(pid_t pid) {
    constexpr int WORDS_BEFORE_START = 18;  // between the state and the start time
    const std::string folder = "/proc/" + std::to_string(pid) + "/";
    std::istringstream status = StatusWords(folder);
    std::string word;
    if (!(status >> word) || word == "Z" || word == "X") {
        return std::nullopt;
    }
    for (int skipped = 0; skipped < WORDS_BEFORE_START; skipped++) {
        status >> word;
    }
    double ticks = 0;
    status >> ticks;

    Process process;
    process.pid = pid;
    process.started = BootTime() + ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
    char target[PATH_MAX];
    const ssize_t length = readlink((folder + "exe").c_str(), target, sizeof target);
    process.program.assign(target, length > 0 ? static_cast<size_t>(length) : 0);
    std::ifstream arguments(folder + "cmdline");
    for (std::string argument; std::getline(arguments, argument, '\0');) {
        process.arguments.push_back(argument);
    }
    return process;
}
