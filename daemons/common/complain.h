// What the daemons have to say: single lines, each written at once, so that those of several daemons never
// mix in the library's log file, which is their standard output and standard error.
#pragma once

// Writes "<program> - <text>" and a line end to standard error: a failure.
void Complain(const char *format, ...) __attribute__((format(printf, 1, 2)));

// The same to standard output: what happened.
void Tell(const char *format, ...) __attribute__((format(printf, 1, 2)));
