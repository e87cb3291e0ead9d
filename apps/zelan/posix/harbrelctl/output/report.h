// The tool's messages and exit statuses. Results go to standard output, all else to standard error.
#pragma once

enum Status : int {
    STATUS_DONE = 0,
    STATUS_FAILED = 1,
    STATUS_USAGE = 2,
    STATUS_NOT_RUNNING = 3,  // something configured does not run, or the doctor has found a fault
    STATUS_CONFLICT = 4,     // refused because it conflicts with something
    STATUS_MOVED_ON = 5,     // the state is no longer the one that was planned for
};

// "harbrelctl: MESSAGE" on standard error.
void Complain(const char *format, ...) __attribute__((format(printf, 1, 2)));
// A step that was done: standard error with --json, else standard output.
void Tell(const char *format, ...) __attribute__((format(printf, 1, 2)));
void SetStepsAside(bool aside);  // from --json

// What a command has found out; false when standard output does not take it, which is said.
bool Print(const char *text);
// Flushes; the status of a run whose output has not arrived is a failure.
int CloseOutput(int status);

// Whether escape sequences may go to standard output: a terminal, and no NO_COLOR.
bool MayColour();
