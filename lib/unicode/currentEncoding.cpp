#include <langinfo.h>
#include <locale.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "lib/unicode/ianaTable.h"

namespace {

struct CurrentEncoding {
    std::string name;
    StringEncoding encoding;
};

// Asked of a locale object of its own, so that the process's locale stays as it is.
std::string LocaleCharset() {
    const locale_t locale = newlocale(LC_CTYPE_MASK, "", nullptr);
    if (locale == nullptr) {
        return nl_langinfo(CODESET);
    }
    std::string charset = nl_langinfo_l(CODESET, locale);
    freelocale(locale);
    return charset;
}

std::string CurrentName() {
    const char *fileNames = getenv("G_FILENAME_ENCODING");
    if (fileNames != nullptr && *fileNames != '\0') {
        const std::string name(fileNames, strcspn(fileNames, ","));
        return name == "@locale" ? LocaleCharset() : name;
    }
    return getenv("G_BROKEN_FILENAMES") != nullptr ? LocaleCharset() : "UTF-8";
}

// Paths, arguments and the environment are strings of bytes that end in one NUL, which no text in units of
// two or four bytes is.
bool HasWideUnits(StringEncoding encoding) {
    return encoding >= STRING_ENCODING_UTF16_LE && encoding <= STRING_ENCODING_UTF32_XE;
}

CurrentEncoding Decide() {
    const std::string name = CurrentName();
    const StringEncoding encoding = UnicodeIANALookup(name.c_str());
    return {name, HasWideUnits(encoding) ? STRING_ENCODING_UNSUPPORTED : encoding};
}

const CurrentEncoding &Current() {
    static const CurrentEncoding current = Decide();
    return current;
}

}  // namespace

StringEncoding Unicode_GetCurrentEncoding() {
    return Current().encoding;
}

const char *Unicode_CurrentEncodingName() {
    return Current().name.c_str();
}

StringEncoding Unicode_ResolveEncoding(StringEncoding encoding) {
    return encoding == STRING_ENCODING_CURRENT ? Unicode_GetCurrentEncoding() : encoding;
}

const char *Unicode_EncodingEnumToName(StringEncoding encoding) {
    const IanaRow *row = Iana_PreferredRow(Unicode_ResolveEncoding(encoding));
    return row != nullptr ? row->preferred : nullptr;
}
