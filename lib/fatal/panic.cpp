#include "lib/fatal/panic.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

void Panic(const char *format, ...) {
    fputs("Panic:\n", stdout);
    va_list args;
    va_start(args, format);
    vprintf(format, args);
    va_end(args);
    Util_Backtrace(0);
    exit(1);
}

void PanicNoMemory(SourcePlace place) {
    Panic("Unrecoverable memory allocation failure at %s:%d\n", place.file, place.line);
}

void PanicMemAlloc(SourcePlace place) {
    Panic("MEM_ALLOC %s:%d\n", place.file, place.line);
}

void PanicNotImplemented(SourcePlace place) {
    Panic("NOT_IMPLEMENTED %s:%d\n", place.file, place.line);
}

void PanicNotReached(SourcePlace place) {
    Panic("NOT_REACHED %s:%d\n", place.file, place.line);
}

void PanicInconsistent(SourcePlace place) {
    Panic("PANIC %s:%d\n", place.file, place.line);
}

void PanicAssert(int bugNumber, SourcePlace place) {
    Panic("ASSERT %s:%d bugNr=%d\n", place.file, place.line, bugNumber);
}

void PanicBufferTooSmall(size_t size, SourcePlace place) {
    Panic("%s:%d Buffer too small 0x%x\n", place.file, place.line, static_cast<unsigned>(size));
}
