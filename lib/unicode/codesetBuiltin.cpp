#include <iconv.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <string>

#include "lib/string/utf16.h"
#include "lib/string/utf8.h"
#include "lib/unicode/codesetLayers.h"
#include "lib/unicode/ianaTable.h"

namespace {

constexpr uint32_t REPLACEMENT_CHARACTER = 0xFFFD;
constexpr uint32_t BYTE_ORDER_MARK = 0xFEFF;
constexpr size_t UTF16_UNIT_BYTES = 2;
constexpr size_t UTF32_UNIT_BYTES = 4;
constexpr size_t MIN_ROOM = 64;

bool IsUtf16(StringEncoding encoding) {
    return encoding >= STRING_ENCODING_UTF16_LE && encoding <= STRING_ENCODING_UTF16_XE;
}

bool IsUtf32(StringEncoding encoding) {
    return encoding >= STRING_ENCODING_UTF32_LE && encoding <= STRING_ENCODING_UTF32_XE;
}

void AppendUtf8(ByteBuffer *out, uint32_t codePoint) {
    char *room = ByteBuffer_Reserve(out, UTF8_MAX_BYTES);
    out->size += Utf8_Encode(codePoint, room);
}

// What the mode makes of a sequence that is not valid in the source; false ends the conversion.
bool HandleInvalid(CodeSetMode mode, ByteBuffer *out) {
    if (mode == CODESET_SUBSTITUTE) {
        AppendUtf8(out, REPLACEMENT_CHARACTER);
    }
    return mode != CODESET_STOP;
}

bool AppendDecoded(uint32_t codePoint, CodeSetMode mode, ByteBuffer *out) {
    if (codePoint == UTF8_INVALID) {
        return HandleInvalid(mode, out);
    }
    AppendUtf8(out, codePoint);
    return true;
}

bool DecodeUtf8(const char *bytes, size_t size, CodeSetMode mode, ByteBuffer *out) {
    const char *end = bytes + size;
    while (bytes != end) {
        if (!AppendDecoded(Utf8_Decode(&bytes, end), mode, out)) {
            return false;
        }
    }
    return true;
}

struct Utf16Reader {
    const char *bytes;
    const char *end;
    bool bigEndian;
};

size_t UnitsLeft(const Utf16Reader &reader) {
    return static_cast<size_t>(reader.end - reader.bytes) / UTF16_UNIT_BYTES;
}

uint32_t PeekUnit(const Utf16Reader &reader) {
    const unsigned first = static_cast<unsigned char>(reader.bytes[0]);
    const unsigned second = static_cast<unsigned char>(reader.bytes[1]);
    return reader.bigEndian ? first << 8 | second : second << 8 | first;
}

uint32_t ReadUtf16(Utf16Reader *reader) {
    if (UnitsLeft(*reader) == 0) {
        reader->bytes = reader->end;
        return UTF8_INVALID;
    }
    const uint32_t unit = PeekUnit(*reader);
    reader->bytes += UTF16_UNIT_BYTES;
    if (!Utf16_IsLead(unit)) {
        return Utf16_IsTrail(unit) ? UTF8_INVALID : unit;
    }
    if (UnitsLeft(*reader) == 0 || !Utf16_IsTrail(PeekUnit(*reader))) {
        return UTF8_INVALID;
    }
    const uint32_t trail = PeekUnit(*reader);
    reader->bytes += UTF16_UNIT_BYTES;
    return Utf16_Join(unit, trail);
}

bool DecodeUtf16(StringEncoding from, const char *bytes, size_t size, CodeSetMode mode, ByteBuffer *out) {
    Utf16Reader reader = {bytes, bytes + size, from != STRING_ENCODING_UTF16_LE};
    if (from == STRING_ENCODING_UTF16_XE && UnitsLeft(reader) != 0) {
        const uint32_t first = PeekUnit(reader);
        reader.bigEndian = first != 0xFFFE;
        if (first == 0xFFFE || first == BYTE_ORDER_MARK) {
            reader.bytes += UTF16_UNIT_BYTES;
        }
    }
    while (reader.bytes != reader.end) {
        if (!AppendDecoded(ReadUtf16(&reader), mode, out)) {
            return false;
        }
    }
    return true;
}

void AppendUnit(ByteBuffer *out, uint32_t unit, bool bigEndian) {
    char *room = ByteBuffer_Reserve(out, UTF16_UNIT_BYTES);
    room[bigEndian ? 0 : 1] = static_cast<char>(unit >> 8);
    room[bigEndian ? 1 : 0] = static_cast<char>(unit);
    out->size += UTF16_UNIT_BYTES;
}

// With a mark where the form tells its order by one, in the order of the processor.
void EncodeUtf16(const ByteBuffer &text, StringEncoding to, ByteBuffer *out) {
    bool bigEndian = to == STRING_ENCODING_UTF16_BE;
    if (to == STRING_ENCODING_UTF16_XE) {
        bigEndian = std::endian::native == std::endian::big;
        AppendUnit(out, BYTE_ORDER_MARK, bigEndian);
    }
    const char *bytes = text.data.get();
    const char *end = bytes + text.size;
    while (bytes != end) {
        const uint32_t codePoint = Utf8_Decode(&bytes, end);
        if (codePoint < UTF16_FIRST_PAIRED) {
            AppendUnit(out, codePoint, bigEndian);
        } else {
            AppendUnit(out, Utf16_LeadOf(codePoint), bigEndian);
            AppendUnit(out, Utf16_TrailOf(codePoint), bigEndian);
        }
    }
}

class Iconv {
  public:
    // Both under the first of their names that iconv knows; one side is UTF-8 in all uses here.
    Iconv(StringEncoding to, StringEncoding from) {
        const bool decodes = to == STRING_ENCODING_UTF8;
        Iana_AnyNameOf(decodes ? from : to, [this, decodes](std::string_view known) {
            const std::string name(known);
            handle_ = decodes ? iconv_open("UTF-8", name.c_str()) : iconv_open(name.c_str(), "UTF-8");
            return IsOpen();
        });
    }
    ~Iconv() {
        if (IsOpen()) {
            iconv_close(handle_);
        }
    }
    Iconv(const Iconv &) = delete;
    Iconv &operator=(const Iconv &) = delete;

    bool IsOpen() const { return handle_ != CLOSED; }

    // Converts up to the end or to the first sequence that does not convert, where *bytes then stands: true
    // and false. Null bytes write what ends the target's shift state.
    bool Run(char **bytes, size_t *left, ByteBuffer *out) const {
        for (;;) {
            char *room = ByteBuffer_Reserve(out, (left != nullptr ? *left : 0) + MIN_ROOM);
            size_t roomLeft = out->capacity - out->size;
            const size_t result = iconv(handle_, bytes, left, &room, &roomLeft);
            out->size = out->capacity - roomLeft;
            if (result != static_cast<size_t>(-1)) {
                return true;
            }
            if (errno != E2BIG) {
                return false;
            }
        }
    }

  private:
    inline static const iconv_t CLOSED = reinterpret_cast<iconv_t>(-1);
    iconv_t handle_ = CLOSED;
};

bool DecodeByIconv(StringEncoding from, const char *bytes, size_t size, CodeSetMode mode, ByteBuffer *out) {
    const Iconv converter(STRING_ENCODING_UTF8, from);
    if (!converter.IsOpen()) {
        return false;
    }
    const size_t unit = IsUtf32(from) ? UTF32_UNIT_BYTES : 1;
    char *next = const_cast<char *>(bytes);
    size_t left = size;
    while (!converter.Run(&next, &left, out)) {
        if (!HandleInvalid(mode, out)) {
            return false;
        }
        const size_t skipped = std::min(unit, left);
        next += skipped;
        left -= skipped;
    }
    return true;
}

bool EncodeByIconv(const ByteBuffer &text, StringEncoding to, CodeSetMode mode, ByteBuffer *out) {
    const Iconv converter(to, STRING_ENCODING_UTF8);
    if (!converter.IsOpen()) {
        return false;
    }
    char *next = text.data.get();
    size_t left = text.size;
    while (!converter.Run(&next, &left, out)) {
        if (mode == CODESET_STOP) {
            return false;
        }
        const size_t skipped = std::min(Utf8_PromisedBytes(*next), left);
        next += skipped;
        left -= skipped;
        if (mode == CODESET_SUBSTITUTE) {
            char substitute[] = "?";
            char *substituteNext = substitute;
            size_t substituteLeft = 1;
            converter.Run(&substituteNext, &substituteLeft, out);
        }
    }
    converter.Run(nullptr, nullptr, out);
    return true;
}

// Every conversion goes through UTF-8.
bool Decode(StringEncoding from, const char *bytes, size_t size, CodeSetMode mode, ByteBuffer *out) {
    if (from == STRING_ENCODING_UTF8) {
        return DecodeUtf8(bytes, size, mode, out);
    }
    return IsUtf16(from) ? DecodeUtf16(from, bytes, size, mode, out)
                         : DecodeByIconv(from, bytes, size, mode, out);
}

}  // namespace

bool CodeSetBuiltin_Convert(StringEncoding from, const char *bytes, size_t size, StringEncoding to,
                            CodeSetMode mode, ByteBuffer *out) {
    if (to == STRING_ENCODING_UTF8) {
        return Decode(from, bytes, size, mode, out);
    }
    ByteBuffer text;
    if (!Decode(from, bytes, size, mode, &text)) {
        return false;
    }
    if (IsUtf16(to)) {
        EncodeUtf16(text, to, out);
        return true;
    }
    return EncodeByIconv(text, to, mode, out);
}

bool CodeSetBuiltin_IsValid(StringEncoding encoding, const char *bytes, size_t size) {
    ByteBuffer text;
    return Decode(encoding, bytes, size, CODESET_STOP, &text);
}
