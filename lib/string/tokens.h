// Tokens and whole-string numbers, shared by the database, lock and dictionary readers.
#pragma once

#include <cstdint>

// Skips delimiters from *index, then copies up to the next delimiter or the end; *index stops on that
// delimiter. A new text that the caller frees, or null when only delimiters were left (*index is then at the
// end).
char *GetNextToken(unsigned *index, const char *text, const char *delimiters);

// A token that converts as a whole; false and *value untouched otherwise. *index moves as in GetNextToken.
bool GetNextUintToken(uint32_t *value, unsigned *index, const char *text, const char *delimiters);
bool GetNextIntToken(int32_t *value, unsigned *index, const char *text, const char *delimiters);

// The base that a number's prefix tells: 16 behind 0x, 8 behind 0, else 10. Newer C libraries take "0b" for a
// prefix, too, when they choose the base themselves.
int NumberBase(const char *text);

// One whole text in the base that its prefix tells (0x, 0, none). What fits in 32 bits, signed or unsigned,
// is accepted, so "-1" is 0xFFFFFFFF; anything left over, an empty text or an overflow fails. *value is set
// on success.
bool StrToUint(uint32_t *value, const char *text);
bool StrToInt(int32_t *value, const char *text);
