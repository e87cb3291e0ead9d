#include "apps/zelan/posix/harbrelCLI/report.h"

#include <cstdarg>
#include <cstdio>

namespace {

constexpr unsigned VERSION_MAJOR = 0;
constexpr unsigned VERSION_MINOR = 1;

constexpr const char *USAGE_FORMAT =
    "Usage: %s [--verbose | -v] <option>\n"
    "Use exactly one of these commands:\n"
    "  --postinstall <component-name>,<old-version>,<new-version>\n"
    "  --migrate-network-settings <location of settings file>\n"
    "  --install-host-policy [<subnet>,<dhcp=0|1>]\n"
    "  --uninstall-host-policy\n"
    "  --start\n"
    "  --stop\n"
    "  --status\n"
    "\n"
    "Additional options:\n"
    "  --help | -h\n"
    "  --version";

struct ReportState {
    const char *programName = "";
    bool verbose = false;
};

ReportState state;

}  // namespace

void Report(int level, const char *format, ...) {
    if (level < REPORT_NORMAL && !state.verbose) {
        return;
    }
    FILE *stream = level == REPORT_ERROR ? stderr : stdout;
    va_list args;
    va_start(args, format);
    flockfile(stream);  // keeps the newline with its text when threads report at once
    vfprintf(stream, format, args);
    fputc('\n', stream);
    funlockfile(stream);
    va_end(args);
}

void SetVerbose(bool verbose) {
    state.verbose = verbose;
}

bool IsVerbose() {
    return state.verbose;
}

void SetProgramName(const char *name) {
    state.programName = name;
}

void PrintVersion() {
    Report(REPORT_ERROR, "%s version: %u.%u", state.programName, VERSION_MAJOR, VERSION_MINOR);
}

void PrintUsage(bool full) {
    if (!full) {
        Report(REPORT_ERROR, "Try '%s --help' for more information", state.programName);
        return;
    }
    PrintVersion();
    Report(REPORT_ERROR, USAGE_FORMAT, state.programName);
}
