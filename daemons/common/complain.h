// What a daemon has to say goes to standard error, which is the library's log file: one line, written at
// once.
#pragma once

// Writes "<program> - <text>" and a line end.
void Complain(const char *format, ...) __attribute__((format(printf, 1, 2)));
