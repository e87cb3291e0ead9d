// Bounded string formatting that refuses to cut a UTF-8 character.
#pragma once

#include <cstdarg>
#include <cstddef>

#include "lib/fatal/panic.h"

// Copies; a text that does not fit (terminator included) stops the process. Returns dest.
char *Str_Strcpy(char *dest, const char *src, size_t size, SourcePlace place = Here());

// The number of bytes written without the terminator, or -1 on overflow; dest then ends in a NUL at the last
// position that leaves no cut UTF-8 character. With size 0 nothing is written. A wide string that is none
// gives -1 and an empty dest; running out of memory stops the process.
int Str_Snprintf(char *dest, size_t size, const char *format, ...) __attribute__((format(printf, 3, 4)));
int Str_Vsnprintf(char *dest, size_t size, const char *format, va_list args)
    __attribute__((format(printf, 3, 0)));
// As Str_Snprintf, but truncation stops the process.
int Str_Sprintf(char *dest, size_t size, const char *format, ...) __attribute__((format(printf, 3, 4)));

// A new text from malloc that the caller frees. `length` (may be null) receives its length without the
// terminator. Str_Asprintf gives null, with errno ENOMEM when memory ran out; Str_SafeAsprintf stops the
// process instead.
char *Str_Asprintf(size_t *length, const char *format, ...) __attribute__((format(printf, 2, 3)));
char *Str_Vasprintf(size_t *length, const char *format, va_list args) __attribute__((format(printf, 2, 0)));
char *Str_SafeAsprintf(size_t *length, const char *format, ...) __attribute__((format(printf, 2, 3)));
