// Message formats: the capture of arguments and their expansion. Every argument is the address of an empty
// text, which is good for a text and a number alike.
#include <cstdarg>
#include <cstdlib>
#include <string>

#include "lib/misc/msgFmt.h"
#include "lib/misc/msgFmtConversion.h"

namespace {

constexpr int ARGUMENTS = 16;

// Whether the format asks for no more arguments than there are, and for no field of a size that only takes
// time.
bool IsHarmless(const char *format) {
    int conversions = 0;
    for (;;) {
        MsgFmtPiece piece = MsgFmt_NextPiece(&format);
        if (piece.kind != MSGFMT_PIECE_CONVERSION) {
            if (piece.kind == MSGFMT_PIECE_TEXT) {
                continue;
            }
            return true;
        }
        conversions++;
        size_t digits = 0;
        for (const char letter : piece.conversion.body) {
            digits = letter >= '0' && letter <= '9' ? digits + 1 : 0;
            if (digits > 4) {
                return false;
            }
        }
        if (piece.conversion.number > ARGUMENTS || conversions > ARGUMENTS) {
            return false;
        }
    }
}

void CaptureAndExpand(const char *format, ...) {
    va_list list;
    va_start(list, format);
    MsgFmtArg *arguments = nullptr;
    int count = 0;
    char *error = nullptr;
    if (MsgFmt_GetArgs(format, list, &arguments, &count, &error)) {
        free(MsgFmt_Asprintf(nullptr, format, arguments, count));
        MsgFmt_FreeArgs(arguments, count);
    }
    free(error);
    va_end(list);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static constexpr wchar_t EMPTY[4] = {};
    const std::string format(reinterpret_cast<const char *>(data), size);
    const void *const e = EMPTY;
    if (IsHarmless(format.c_str())) {
        CaptureAndExpand(format.c_str(), e, e, e, e, e, e, e, e, e, e, e, e, e, e, e, e, e, e, e, e, e, e, e,
                         e);
    }
    return 0;
}
