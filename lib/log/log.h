// The foundation's general log: where the file, lock, thread, string and Unicode layers note what is worth
// noting.
//
// It has no destination in this product: both calls are fire and forget and reach no stream and no file. What
// an administrator reads goes through the network library's own log (lib/harbrel/base/hblLog.h).
#pragma once

#include <cstdarg>

// printf-like. While the general log is disabled the arguments are not even formatted.
void Log(const char *format, ...) __attribute__((format(printf, 1, 2)));

// printf-like; formatted into 4096 bytes, copied to stderr only when the quiet flag is clear (it never is).
void Warning(const char *format, ...) __attribute__((format(printf, 1, 2)));

// A hook takes the place of everything that Log, or Warning, would do. The product sets none; a debugging
// session or a test does. Null takes a hook away. Hooks may be called from any thread.
using LogHook = void (*)(const char *format, va_list args);
void Log_SetLogHook(LogHook hook);
void Log_SetWarningHook(LogHook hook);
