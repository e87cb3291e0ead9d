#include "lib/unicode/codeset.h"

#include <sys/stat.h>

#include "lib/string/utf8.h"
#include "lib/unicode/codesetLayers.h"

namespace {

constexpr char ICU_DATA_FILE[] = "/etc/orvane/icu/icudt38l.dat";

struct CodeSetState {
    bool useIcu;
    bool good;
};

// The path is plain ASCII and this is what path wrappers stand on, so stat itself is called.
CodeSetState SetUpLayer() {
    struct stat status;
    const bool useIcu = stat(ICU_DATA_FILE, &status) == 0 && !S_ISDIR(status.st_mode);
    return {useIcu, !useIcu || CodeSetIcu_Init(ICU_DATA_FILE)};
}

const CodeSetState &State() {
    static const CodeSetState state = SetUpLayer();
    return state;
}

bool IsValidUtf8(const char *bytes, size_t size) {
    const char *end = bytes + size;
    while (bytes != end) {
        if (Utf8_Decode(&bytes, end) == UTF8_INVALID) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool CodeSet_Init() {
    return State().good;
}

bool CodeSet_Convert(StringEncoding from, const void *bytes, size_t size, StringEncoding to, CodeSetMode mode,
                     ByteBuffer *out) {
    const char *text = static_cast<const char *>(bytes);
    from = Unicode_ResolveEncoding(from);
    to = Unicode_ResolveEncoding(to);
    bool converted;
    if (from == STRING_ENCODING_UTF8 && to == STRING_ENCODING_UTF8 && IsValidUtf8(text, size)) {
        ByteBuffer_Append(out, text, size);
        converted = true;
    } else if (State().useIcu) {
        converted = CodeSetIcu_Convert(from, text, size, to, mode, out);
    } else {
        converted = CodeSetBuiltin_Convert(from, text, size, to, mode, out);
    }
    ByteBuffer_EndText(out);
    return converted;
}

bool CodeSet_IsValid(StringEncoding encoding, const void *bytes, size_t size) {
    const char *text = static_cast<const char *>(bytes);
    encoding = Unicode_ResolveEncoding(encoding);
    if (encoding == STRING_ENCODING_UTF8) {
        return IsValidUtf8(text, size);
    }
    return State().useIcu ? CodeSetIcu_IsValid(encoding, text, size)
                          : CodeSetBuiltin_IsValid(encoding, text, size);
}
