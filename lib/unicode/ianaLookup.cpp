#include <strings.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string>

#include "lib/log/log.h"
#include "lib/unicode/ianaTable.h"

namespace {

constexpr char WINDOWS_PREFIX[] = "windows-";
constexpr size_t WINDOWS_PREFIX_LENGTH = sizeof WINDOWS_PREFIX - 1;

bool IsLetterOrDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// Compares two names by their letters and digits alone, letters without regard to case. `end` ends the first
// one; the second ends with its NUL.
bool IsSameName(const char *name, const char *end, const char *other) {
    for (;;) {
        while (name != end && !IsLetterOrDigit(*name)) {
            name++;
        }
        while (*other != '\0' && !IsLetterOrDigit(*other)) {
            other++;
        }
        if (name == end || *other == '\0') {
            return name == end && *other == '\0';
        }
        if (tolower(static_cast<unsigned char>(*name++)) != tolower(static_cast<unsigned char>(*other++))) {
            return false;
        }
    }
}

bool RowHasName(const IanaRow &row, const char *name) {
    if (IsSameName(row.preferred, row.preferred + strlen(row.preferred), name)) {
        return true;
    }
    for (const char *alias = row.aliases; *alias != '\0';) {
        const char *end = strchrnul(alias, ' ');
        if (IsSameName(alias, end, name)) {
            return true;
        }
        alias = *end == ' ' ? end + 1 : end;
    }
    return false;
}

// 0 for a name that is not "windows-" and digits only.
unsigned long WindowsPageOf(const char *name) {
    if (strncasecmp(name, WINDOWS_PREFIX, WINDOWS_PREFIX_LENGTH) != 0) {
        return 0;
    }
    const char *digits = name + WINDOWS_PREFIX_LENGTH;
    return digits[strspn(digits, "0123456789")] == '\0' ? strtoul(digits, nullptr, 10) : 0;
}

const IanaRow *FindRow(const char *name) {
    const unsigned long page = WindowsPageOf(name);
    if (page != 0) {
        for (const IanaRow &row : IANA_TABLE) {
            if (row.windowsPage == page) {
                return &row;
            }
        }
    }
    for (const IanaRow &row : IANA_TABLE) {
        if (RowHasName(row, name)) {
            return &row;
        }
    }
    return nullptr;
}

}  // namespace

StringEncoding UnicodeIANALookup(const char *name) {
    const IanaRow *row = FindRow(name);
    if (row == nullptr) {
        Log("%s: Did not find an IANA match for encoding \"%s\"\n", __func__, name);
        return STRING_ENCODING_UNSUPPORTED;
    }
    if (!row->enabled) {
        return STRING_ENCODING_UNSUPPORTED;
    }
    return row->encoding;
}

const IanaRow *Iana_PreferredRow(StringEncoding encoding) {
    for (const IanaRow &row : IANA_TABLE) {
        if (row.encoding == encoding) {
            return &row;
        }
    }
    return nullptr;
}

bool Iana_ForEachName(StringEncoding encoding, bool (*visit)(const char *name, void *clientData),
                      void *clientData) {
    for (const IanaRow &row : IANA_TABLE) {
        if (row.encoding != encoding) {
            continue;
        }
        if (visit(row.preferred, clientData)) {
            return true;
        }
        for (const char *alias = row.aliases; *alias != '\0';) {
            const char *end = strchrnul(alias, ' ');
            if (visit(std::string(alias, end).c_str(), clientData)) {
                return true;
            }
            alias = *end == ' ' ? end + 1 : end;
        }
    }
    return false;
}
