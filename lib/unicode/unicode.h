// The rule that every text inside the system is NUL-terminated UTF-8 from malloc, and the ways across its
// edge.
#pragma once

#include <cstdarg>
#include <cstddef>

using StringEncoding = int;
enum : StringEncoding {
    STRING_ENCODING_UNSUPPORTED = -2,
    STRING_ENCODING_CURRENT = -1,  // the process's own encoding, decided once at the first need
    STRING_ENCODING_UTF8 = 0,
    STRING_ENCODING_UTF16_LE = 1,
    STRING_ENCODING_UTF16_BE = 2,
    STRING_ENCODING_UTF16_XE = 3,  // byte order told by a mark
    STRING_ENCODING_UTF32_LE = 4,
    STRING_ENCODING_UTF32_BE = 5,
    STRING_ENCODING_UTF32_XE = 6,
    STRING_ENCODING_US_ASCII = 7,
};

// Sets up conversion and the current encoding; failures stop the process. With argv (and envp) given, they
// are replaced by new arrays of UTF-8 copies that live to the end of the process.
void Unicode_Init(int argc, char ***argv, char ***envp);

// From an encoding to a new UTF-8 text; length -1 means terminated. Null gives null. A buffer that is not
// valid in its encoding stops the process: test with Unicode_IsBufferValid where the input is not known to be
// good.
char *Unicode_AllocWithLength(const void *buffer, ptrdiff_t length, StringEncoding encoding);
bool Unicode_IsBufferValid(const void *buffer, ptrdiff_t length, StringEncoding encoding);
// From UTF-8 to a new buffer in an encoding, ended by four NUL bytes. Null with a non-null input: cannot be
// converted.
void *Unicode_GetAllocBytes(const char *text, StringEncoding encoding);

const char *Unicode_EncodingEnumToName(StringEncoding encoding);  // the preferred name
StringEncoding UnicodeIANALookup(const char *name);  // STRING_ENCODING_UNSUPPORTED when unknown or disabled
StringEncoding Unicode_GetCurrentEncoding();
StringEncoding Unicode_ResolveEncoding(StringEncoding encoding);  // -1 becomes the current one
const char *Unicode_CurrentEncodingName();

// Offsets and lengths below count bytes of the UTF-8 form. A start that is negative or beyond the end means
// the end; a length that is negative or reaches beyond the end means up to the end.
char *Unicode_Duplicate(const char *text);
char *Unicode_Format(const char *format, ...) __attribute__((format(printf, 1, 2)));
char *Unicode_Join(const char *first, ...) __attribute__((sentinel));
char *Unicode_Substr(const char *text, ptrdiff_t start, ptrdiff_t length);
char *Unicode_ReplaceRange(const char *dest, ptrdiff_t destStart, ptrdiff_t destLength, const char *src,
                           ptrdiff_t srcStart, ptrdiff_t srcLength);
ptrdiff_t Unicode_FindSubstrInRange(const char *text, ptrdiff_t start, ptrdiff_t length, const char *sought,
                                    ptrdiff_t soughtStart, ptrdiff_t soughtLength);
ptrdiff_t Unicode_FindLastSubstrInRange(const char *text, ptrdiff_t start, ptrdiff_t length,
                                        const char *sought, ptrdiff_t soughtStart, ptrdiff_t soughtLength);
// -1, 0 or 1 in the order of code points; a failed conversion gives -1.
int Unicode_CompareRange(const char *text, ptrdiff_t start, ptrdiff_t length, const char *other,
                         ptrdiff_t otherStart, ptrdiff_t otherLength, bool ignoreCase);
