#include <unicode/putil.h>
#include <unicode/ucnv.h>
#include <unicode/ucnv_err.h>

#include <cstdint>
#include <iterator>
#include <memory>

#include "lib/unicode/codesetLayers.h"
#include "lib/unicode/ianaTable.h"

namespace {

constexpr size_t PIVOT_UNITS = 1024;
constexpr size_t MIN_ROOM = 64;

struct ConverterCloser {
    void operator()(UConverter *converter) const { ucnv_close(converter); }
};
using Converter = std::unique_ptr<UConverter, ConverterCloser>;

struct ModeCallbacks {
    UConverterToUCallback toUnicode;
    UConverterFromUCallback fromUnicode;
};

ModeCallbacks CallbacksOf(CodeSetMode mode) {
    switch (mode) {
        case CODESET_SUBSTITUTE:
            return {UCNV_TO_U_CALLBACK_SUBSTITUTE, UCNV_FROM_U_CALLBACK_SUBSTITUTE};
        case CODESET_SKIP:
            return {UCNV_TO_U_CALLBACK_SKIP, UCNV_FROM_U_CALLBACK_SKIP};
        default:
            return {UCNV_TO_U_CALLBACK_STOP, UCNV_FROM_U_CALLBACK_STOP};
    }
}

// Null when ICU has no converter under any name of the encoding.
Converter Open(StringEncoding encoding, CodeSetMode mode) {
    Converter converter;
    const bool opened = Iana_AnyNameOf(encoding, [&converter](std::string_view name) {
        UErrorCode status = U_ZERO_ERROR;
        converter.reset(ucnv_open(std::string(name).c_str(), &status));
        return U_SUCCESS(status);
    });
    if (!opened) {
        return nullptr;
    }
    const ModeCallbacks callbacks = CallbacksOf(mode);
    UErrorCode status = U_ZERO_ERROR;
    ucnv_setToUCallBack(converter.get(), callbacks.toUnicode, nullptr, nullptr, nullptr, &status);
    ucnv_setFromUCallBack(converter.get(), callbacks.fromUnicode, nullptr, nullptr, nullptr, &status);
    return U_SUCCESS(status) ? std::move(converter) : nullptr;
}

}  // namespace

bool CodeSetIcu_Init(const char *dataPath) {
    u_setDataDirectory(dataPath);
    return Open(STRING_ENCODING_UTF8, CODESET_STOP) != nullptr;
}

bool CodeSetIcu_Convert(StringEncoding from, const char *bytes, size_t size, StringEncoding to,
                        CodeSetMode mode, ByteBuffer *out) {
    const Converter source = Open(from, mode);
    const Converter target = Open(to, mode);
    if (source == nullptr || target == nullptr) {
        return false;
    }
    UChar pivot[PIVOT_UNITS];
    UChar *pivotSource = pivot;
    UChar *pivotTarget = pivot;
    const char *end = bytes + size;
    UErrorCode status = U_BUFFER_OVERFLOW_ERROR;
    for (bool reset = true; status == U_BUFFER_OVERFLOW_ERROR; reset = false) {
        char *start = ByteBuffer_Reserve(out, size + MIN_ROOM);
        char *written = start;
        status = U_ZERO_ERROR;
        ucnv_convertEx(target.get(), source.get(), &written, out->data.get() + out->capacity, &bytes, end,
                       pivot, &pivotSource, &pivotTarget, std::end(pivot), reset, true, &status);
        out->size += static_cast<size_t>(written - start);
    }
    return U_SUCCESS(status);
}

bool CodeSetIcu_IsValid(StringEncoding encoding, const char *bytes, size_t size) {
    const Converter converter = Open(encoding, CODESET_STOP);
    if (converter == nullptr || size > INT32_MAX) {
        return false;
    }
    UErrorCode status = U_ZERO_ERROR;
    ucnv_toUChars(converter.get(), nullptr, 0, bytes, static_cast<int32_t>(size), &status);
    return U_SUCCESS(status) || status == U_BUFFER_OVERFLOW_ERROR;
}
