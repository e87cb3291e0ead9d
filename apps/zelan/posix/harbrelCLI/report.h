// What a user reads: the tool's only output routine, its version line and its usage text.
#pragma once

enum ReportLevel : int {
    REPORT_VERBOSE = 4660,  // stdout, only if verbose is on
    REPORT_NORMAL = 4661,   // stdout
    REPORT_ERROR = 4662,    // stderr
};

// Prints the formatted text and one newline. Called from the main thread and from the subnet threads; the
// stream's own lock keeps each line whole.
void Report(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

void SetVerbose(bool verbose);
bool IsVerbose();
// argv[0] as received; borrowed for the life of the process.
void SetProgramName(const char *name);

void PrintVersion();
void PrintUsage(bool full);
