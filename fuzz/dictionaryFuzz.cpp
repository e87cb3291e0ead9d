// Dictionary files, in every encoding that they can declare, and the typed reads of what they hold.
#include "fuzz/inputFile.h"
#include "lib/config/msg.h"
#include "lib/dict/dictionary.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const InputFile file;
    // The default post shows the message and waits for a key.
    Msg_SetPostCallbacks([](int, const char *, const char *) {}, nullptr);
    file.Write(data, size);
    Dictionary *const dictionary = Dictionary_Create();
    if (Dictionary_Load(dictionary, file.Path().c_str(), 18, STRING_ENCODING_UTF8)) {
        free(DictionaryGetString(dictionary, nullptr, "bindir"));
        static constexpr struct {
            const char *name;
            DictionaryType type;
        } READS[] = {
            {"a", DICT_BOOL}, {"b", DICT_LONG}, {"c", DICT_DOUBLE}, {"d", DICT_INT64}, {"e", DICT_TRISTATE}};
        for (const auto &read : READS) {
            const int64_t none = 0;
            DictionaryGetTyped(dictionary, &none, read.type, read.name);
        }
    }
    Dictionary_Free(dictionary);
    Msg_Reset(false);
    return 0;
}
