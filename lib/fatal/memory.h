// Allocation that the code cannot live without: every function here either succeeds or stops the process
// through PanicNoMemory with the caller's place. All memory comes from malloc and is freed with free.
#pragma once

#include <cstddef>

#include "lib/fatal/panic.h"

void *Mem_Alloc(size_t size, SourcePlace place = Here());
void *Mem_Calloc(size_t count, size_t size, SourcePlace place = Here());
void *Mem_Realloc(void *old, size_t size, SourcePlace place = Here());
char *Mem_Strdup(const char *text, SourcePlace place = Here());  // null gives null
// A NUL-terminated copy of the first `length` bytes.
char *Mem_CopyText(const char *text, size_t length, SourcePlace place = Here());

// Makes a failed operator new end in the same stop until it is removed, as often as it was installed. The
// handler that the program had before then stands again, unless the program has set another one meanwhile.
// For the thread that starts the process or loads the library.
void Mem_InstallNewHandler();
void Mem_RemoveNewHandler();
