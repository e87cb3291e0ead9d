// The character sets that the system knows by name.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string_view>

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

// Offers the row's names, the preferred one first, until `visit`, which takes a string_view, returns true;
// whether it did.
template <typename Visit>
bool Iana_AnyName(const IanaRow &row, Visit visit) {
    if (visit(std::string_view(row.preferred))) {
        return true;
    }
    for (std::string_view rest = row.aliases; !rest.empty();) {
        const std::string_view alias = rest.substr(0, rest.find(' '));
        if (visit(alias)) {
            return true;
        }
        rest.remove_prefix(std::min(alias.size() + 1, rest.size()));
    }
    return false;
}

// The same with every name that the table has for an encoding.
template <typename Visit>
bool Iana_AnyNameOf(StringEncoding encoding, Visit visit) {
    return std::any_of(std::begin(IANA_TABLE), std::end(IANA_TABLE), [&](const IanaRow &row) {
        return row.encoding == encoding && Iana_AnyName(row, visit);
    });
}
