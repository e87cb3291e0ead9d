#include <cstddef>

#include "lib/fatal/memory.h"
#include "lib/fatal/panic.h"
#include "lib/unicode/codeset.h"

namespace {

// The copies live to the end of the process, as the arrays that they replace did.
char **CopyTexts(char *const *texts, size_t count) {
    char **copies = static_cast<char **>(Mem_Calloc(count + 1, sizeof *copies));
    for (size_t i = 0; i < count; i++) {
        copies[i] = Unicode_AllocWithLength(texts[i], -1, STRING_ENCODING_CURRENT);
    }
    return copies;
}

size_t CountTexts(char *const *texts) {
    size_t count = 0;
    while (texts[count] != nullptr) {
        count++;
    }
    return count;
}

bool HasConverter(StringEncoding encoding) {
    ByteBuffer nothing;
    return CodeSet_Convert(encoding, "", 0, STRING_ENCODING_UTF8, CODESET_STOP, &nothing);
}

}  // namespace

void Unicode_Init(int argc, char ***argv, char ***envp) {
    if (!CodeSet_Init()) {
        Panic("Failed to initialize codeset.\n");
    }
    const StringEncoding current = Unicode_GetCurrentEncoding();
    if (current == STRING_ENCODING_UNSUPPORTED || !HasConverter(current)) {
        Panic("Unsupported local character encoding \"%s\".\n", Unicode_CurrentEncodingName());
    }
    if (argv != nullptr) {
        *argv = CopyTexts(*argv, static_cast<size_t>(argc));
    }
    if (envp != nullptr) {
        *envp = CopyTexts(*envp, CountTexts(*envp));
    }
}
