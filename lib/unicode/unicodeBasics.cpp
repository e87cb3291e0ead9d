#include <cctype>
#include <cstdarg>
#include <cstring>
#include <string>

#include "lib/fatal/memory.h"
#include "lib/log/log.h"
#include "lib/string/str.h"
#include "lib/unicode/codeset.h"

namespace {

size_t TerminatorSize(StringEncoding encoding) {
    if (encoding >= STRING_ENCODING_UTF16_LE && encoding <= STRING_ENCODING_UTF16_XE) {
        return 2;
    }
    return encoding >= STRING_ENCODING_UTF32_LE && encoding <= STRING_ENCODING_UTF32_XE ? 4 : 1;
}

size_t TerminatedLength(const char *buffer, StringEncoding encoding) {
    const size_t width = TerminatorSize(Unicode_ResolveEncoding(encoding));
    if (width == 1) {
        return strlen(buffer);
    }
    constexpr char ZEROS[4] = {};
    size_t length = 0;
    while (memcmp(buffer + length, ZEROS, width) != 0) {
        length += width;
    }
    return length;
}

size_t BufferLength(const void *buffer, ptrdiff_t length, StringEncoding encoding) {
    return length < 0 ? TerminatedLength(static_cast<const char *>(buffer), encoding)
                      : static_cast<size_t>(length);
}

std::string Escape(const char *buffer, size_t length) {
    std::string escaped;
    for (size_t i = 0; i < length; i++) {
        const unsigned char byte = static_cast<unsigned char>(buffer[i]);
        if (byte < 0x80 && isprint(byte)) {
            escaped += static_cast<char>(byte);
        } else {
            char code[8];
            Str_Sprintf(code, sizeof code, "\\x%02X", byte);
            escaped += code;
        }
    }
    return escaped;
}

}  // namespace

char *Unicode_AllocWithLength(const void *buffer, ptrdiff_t length, StringEncoding encoding) {
    if (buffer == nullptr) {
        return nullptr;
    }
    const size_t size = BufferLength(buffer, length, encoding);
    ByteBuffer text;
    if (!CodeSet_Convert(encoding, buffer, size, STRING_ENCODING_UTF8, CODESET_STOP, &text)) {
        const char *name = Unicode_EncodingEnumToName(encoding);
        Log("%s: Error: Couldn't convert invalid buffer [%s] from %s to Unicode.\n", __func__,
            Escape(static_cast<const char *>(buffer), size).c_str(),
            name != nullptr ? name : "(unsupported)");
        PanicInconsistent();
    }
    return text.data.release();
}

bool Unicode_IsBufferValid(const void *buffer, ptrdiff_t length, StringEncoding encoding) {
    return buffer == nullptr || CodeSet_IsValid(encoding, buffer, BufferLength(buffer, length, encoding));
}

void *Unicode_GetAllocBytes(const char *text, StringEncoding encoding) {
    if (text == nullptr) {
        return nullptr;
    }
    ByteBuffer bytes;
    if (!CodeSet_Convert(STRING_ENCODING_UTF8, text, strlen(text), encoding, CODESET_STOP, &bytes)) {
        return nullptr;
    }
    return bytes.data.release();
}

char *Unicode_Duplicate(const char *text) {
    return Mem_Strdup(text);
}

char *Unicode_Format(const char *format, ...) {
    va_list args;
    va_start(args, format);
    char *text = Str_Vasprintf(nullptr, format, args);
    va_end(args);
    return text;
}

char *Unicode_Join(const char *first, ...) {
    if (first == nullptr) {
        return nullptr;
    }
    std::string joined = first;
    va_list args;
    va_start(args, first);
    for (const char *next = va_arg(args, const char *); next != nullptr; next = va_arg(args, const char *)) {
        joined += next;
    }
    va_end(args);
    return Mem_CopyText(joined.data(), joined.size());
}
