// The printf forms that the C library lacks or answers differently: the prefixes I64 and I32, wide strings
// and characters that become UTF-8 whatever the locale, NaN without a sign, and a null string that shows
// under any precision.
#pragma once

#include <cstdarg>
#include <cstddef>

// False for a format that the C library's own printf serves as it stands.
bool StrFormat_NeedsTranslation(const char *format);

// Formats with the forms above, in sequence or by position ("%2$s"). A new text from malloc that the caller
// frees, its length without the terminator in *length. Null with errno: ENOMEM when memory ran out, EILSEQ
// when a wide string holds what is no character, E2BIG at more than 128 arguments.
char *StrFormat_Translate(size_t *length, const char *format, va_list args)
    __attribute__((format(printf, 2, 0)));
