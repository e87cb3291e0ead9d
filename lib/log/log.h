// The foundation's general log: where the file, lock, thread, string and Unicode layers note what is worth
// noting.
//
// It has no destination in this product: both calls are fire and forget and reach no stream and no file. What
// an administrator reads goes through the network library's own log (lib/harbrel/base/hblLog.h).
#pragma once

// printf-like. While the general log is disabled the arguments are not even formatted.
void Log(const char *format, ...) __attribute__((format(printf, 1, 2)));

// printf-like; formatted into 4096 bytes, copied to stderr only when the quiet flag is clear (it never is).
void Warning(const char *format, ...) __attribute__((format(printf, 1, 2)));
