#include <cstddef>

#include "lib/fatal/memory.h"
#include "lib/fatal/panic.h"
#include "lib/unicode/codeset.h"

namespace {

// The copies live to the end of the process, as the arrays that they replace did, and stay reachable from
// here.
struct ProcessTexts {
    char **argv = nullptr;
    char **envp = nullptr;
};

[[gnu::used]] ProcessTexts processTexts;

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
        processTexts.argv = CopyTexts(*argv, static_cast<size_t>(argc));
        *argv = processTexts.argv;
    }
    if (envp != nullptr) {
        processTexts.envp = CopyTexts(*envp, CountTexts(*envp));
        *envp = processTexts.envp;
    }
}
