#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "lib/log/log.h"
#include "lib/unicode/ianaTable.h"

namespace {

constexpr char WINDOWS_PREFIX[] = "windows-";
constexpr size_t WINDOWS_PREFIX_LENGTH = sizeof WINDOWS_PREFIX - 1;

bool IsLetterOrDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// Compares two names by their letters and digits alone, letters without regard to case.
bool IsSameName(std::string_view name, std::string_view other) {
    const auto skipRest = [](std::string_view *text) {
        text->remove_prefix(
            static_cast<size_t>(std::find_if(text->begin(), text->end(), IsLetterOrDigit) - text->begin()));
    };
    for (;;) {
        skipRest(&name);
        skipRest(&other);
        if (name.empty() || other.empty()) {
            return name.empty() && other.empty();
        }
        if (tolower(static_cast<unsigned char>(name.front())) !=
            tolower(static_cast<unsigned char>(other.front()))) {
            return false;
        }
        name.remove_prefix(1);
        other.remove_prefix(1);
    }
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
        if (Iana_AnyName(row, [name](std::string_view known) { return IsSameName(known, name); })) {
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
