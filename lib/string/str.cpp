#include "lib/string/str.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "lib/misc/owners.h"
#include "lib/string/strFormat.h"
#include "lib/string/utf8.h"

namespace {

constexpr int OVERFLOWN = -1;

void EndAtWholeCharacter(char *dest, size_t size) {
    if (size != 0) {
        dest[Utf8_LengthWithoutCutCharacter(dest, size - 1)] = '\0';
    }
}

// What does not format is the caller's to deal with; a lack of memory is not.
void StopWithoutMemory(SourcePlace place = Here()) {
    if (errno == ENOMEM) {
        PanicNoMemory(place);
    }
}

int FormatTranslated(char *dest, size_t size, const char *format, va_list args)
    __attribute__((format(printf, 3, 0)));
int FormatTranslated(char *dest, size_t size, const char *format, va_list args) {
    size_t length = 0;
    const MallocString text(StrFormat_Translate(&length, format, args));
    if (text == nullptr) {
        StopWithoutMemory();
        if (size != 0) {
            dest[0] = '\0';
        }
        return OVERFLOWN;
    }
    if (length >= size || length > INT_MAX) {
        if (size != 0) {
            memcpy(dest, text.get(), size - 1);
        }
        EndAtWholeCharacter(dest, size);
        return OVERFLOWN;
    }
    memcpy(dest, text.get(), length + 1);
    return static_cast<int>(length);
}

}  // namespace

char *Str_Strcpy(char *dest, const char *src, size_t size, SourcePlace place) {
    const size_t length = strlen(src);
    if (length >= size) {
        PanicBufferTooSmall(size, place);
    }
    return static_cast<char *>(memcpy(dest, src, length + 1));
}

int Str_Vsnprintf(char *dest, size_t size, const char *format, va_list args) {
    if (StrFormat_NeedsTranslation(format)) {
        return FormatTranslated(dest, size, format, args);
    }
    const int length = vsnprintf(dest, size, format, args);
    if (length < 0) {
        StopWithoutMemory();
        if (size != 0) {
            dest[0] = '\0';
        }
        return OVERFLOWN;
    }
    if (static_cast<size_t>(length) >= size) {
        EndAtWholeCharacter(dest, size);
        return OVERFLOWN;
    }
    return length;
}

int Str_Snprintf(char *dest, size_t size, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int length = Str_Vsnprintf(dest, size, format, args);
    va_end(args);
    return length;
}

int Str_Sprintf(char *dest, size_t size, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int length = Str_Vsnprintf(dest, size, format, args);
    va_end(args);
    if (length < 0) {
        PanicBufferTooSmall(size);
    }
    return length;
}

char *Str_Vasprintf(size_t *length, const char *format, va_list args) {
    char *text = nullptr;
    size_t size = 0;
    if (StrFormat_NeedsTranslation(format)) {
        text = StrFormat_Translate(&size, format, args);
    } else {
        const int written = vasprintf(&text, format, args);
        if (written < 0) {
            return nullptr;
        }
        size = static_cast<size_t>(written);
    }
    if (text != nullptr && length != nullptr) {
        *length = size;
    }
    return text;
}

char *Str_Asprintf(size_t *length, const char *format, ...) {
    va_list args;
    va_start(args, format);
    char *text = Str_Vasprintf(length, format, args);
    va_end(args);
    return text;
}

char *Str_SafeAsprintf(size_t *length, const char *format, ...) {
    va_list args;
    va_start(args, format);
    char *text = Str_Vasprintf(length, format, args);
    va_end(args);
    if (text == nullptr) {
        StopWithoutMemory();
        PanicInconsistent();
    }
    return text;
}
