// The one fatal stop of the foundation, and the checks that end in it.
#pragma once

#include <cstddef>

// A place in the source, captured at the caller through a default argument. `file` is the path below the root
// of the source (the build maps the prefix away).
struct SourcePlace {
    const char *file;
    int line;
};

constexpr SourcePlace Here(const char *file = __builtin_FILE(), int line = __builtin_LINE()) {
    return SourcePlace{file, line};
}

// Writes "Panic:" and the formatted message to standard output, logs a backtrace, and ends the process with
// exit status 1 through the ordinary exit path. Formats end with a newline.
[[noreturn]] void Panic(const char *format, ...) __attribute__((format(printf, 1, 2)));

[[noreturn]] void PanicNoMemory(
    SourcePlace place = Here());  // "Unrecoverable memory allocation failure at ..."
[[noreturn]] void PanicMemAlloc(SourcePlace place = Here());        // "MEM_ALLOC ..."
[[noreturn]] void PanicNotImplemented(SourcePlace place = Here());  // "NOT_IMPLEMENTED ..."
[[noreturn]] void PanicNotReached(SourcePlace place = Here());      // "NOT_REACHED ..."
[[noreturn]] void PanicInconsistent(SourcePlace place = Here());    // "PANIC ..."
[[noreturn]] void PanicAssert(int bugNumber, SourcePlace place = Here());
[[noreturn]] void PanicBufferTooSmall(size_t size, SourcePlace place = Here());

// Logs the stack of the caller, line by line, through Util_LogWrapper. 0 means that no bug number is known.
void Util_Backtrace(int bugNumber);

// Formats one line into 255 bytes, cutting what does not fit, and hands it to Log. The first argument is
// unused.
void Util_LogWrapper(void *unused, const char *format, ...) __attribute__((format(printf, 2, 3)));
