// The character sets that the system knows by name.
#pragma once

#include <cstdint>

#include "lib/unicode/unicode.h"

constexpr int IANA_ROW_COUNT = 319;
constexpr StringEncoding STRING_ENCODING_COUNT = 316;  // the numbers below it are encodings
constexpr int IANA_MAX_ALIASES = 20;

struct IanaRow {
    int16_t encoding;      // several rows may name one encoding; the first of them has its preferred name
    uint16_t windowsPage;  // 0 when Windows has no code page for it
    bool enabled;          // clear when no converter reaches it
    const char *preferred;
    const char *aliases;  // blanks between them
};

extern const IanaRow IANA_TABLE[IANA_ROW_COUNT];

// The row with an encoding's preferred name; null for a number that is no encoding.
const IanaRow *Iana_PreferredRow(StringEncoding encoding);

// Offers every name that the table has for an encoding, the preferred one first, until `visit` returns true;
// whether it did.
bool Iana_ForEachName(StringEncoding encoding, bool (*visit)(const char *name, void *clientData),
                      void *clientData);
