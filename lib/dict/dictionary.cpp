#include "lib/dict/dictionary.h"

#include <cstdarg>
#include <cstdlib>

#include "lib/dict/dictionaryData.h"
#include "lib/fatal/memory.h"
#include "lib/misc/hashTable.h"
#include "lib/string/str.h"

namespace {

constexpr uint32_t NAME_BUCKETS = 512;
constexpr size_t NAME_SIZE = 1024;

bool IsText(DictionaryType type) {
    return type == DICT_ANY || type == DICT_STRING;
}

DictionaryValue CopyValue(DictionaryType type, const void *source) {
    DictionaryValue value = {};
    switch (type) {
        case DICT_ANY:
        case DICT_STRING:
            value.text = Mem_Strdup(*static_cast<const char *const *>(source));
            break;
        case DICT_BOOL:
            value.boolean = *static_cast<const bool *>(source);
            break;
        case DICT_LONG:
            value.integer = *static_cast<const int32_t *>(source);
            break;
        case DICT_DOUBLE:
            value.real = *static_cast<const double *>(source);
            break;
        case DICT_TRISTATE:
            value.tristate = *static_cast<const int *>(source);
            break;
        case DICT_INT64:
            value.integer64 = *static_cast<const int64_t *>(source);
            break;
    }
    return value;
}

void FreeEntries(DictionaryEntry *entry) {
    while (entry != nullptr) {
        DictionaryEntry *next = entry->next;
        if (IsText(entry->type)) {
            free(entry->value.text);
        }
        free(entry->name);
        free(entry);
        entry = next;
    }
}

void FreeLines(DictionaryLine *line) {
    while (line != nullptr) {
        DictionaryLine *next = line->next;
        free(line->text);
        free(line);
        line = next;
    }
}

}  // namespace

Dictionary *Dictionary_Create() {
    Dictionary *dict = static_cast<Dictionary *>(Mem_Calloc(1, sizeof *dict));
    dict->names = HashTable_Alloc(NAME_BUCKETS, HASH_ISTRING_KEY, nullptr);
    dict->encoding = STRING_ENCODING_UNSUPPORTED;
    return dict;
}

void Dictionary_Free(Dictionary *dict) {
    if (dict == nullptr) {
        return;
    }
    Dictionary_Clear(dict);
    HashTable_Free(dict->names);
    free(dict);
}

void Dictionary_Clear(Dictionary *dict) {
    // The table's keys are the names of the entries.
    HashTable_Clear(dict->names);
    FreeEntries(dict->entries.head);
    FreeLines(dict->lines.head);
    dict->entries = {};
    dict->lines = {};
    dict->entryCount = 0;
    dict->encoding = STRING_ENCODING_UNSUPPORTED;
}

DictionaryEntry *Dictionary_Find(const Dictionary *dict, const char *name) {
    void *entry = nullptr;
    return HashTable_Lookup(dict->names, name, &entry) ? static_cast<DictionaryEntry *>(entry) : nullptr;
}

DictionaryEntry *Dictionary_Add(Dictionary *dict, const char *name, DictionaryType type,
                                DictionaryValue value) {
    DictionaryEntry *entry = static_cast<DictionaryEntry *>(Mem_Calloc(1, sizeof *entry));
    entry->name = Mem_Strdup(name);
    entry->type = type;
    entry->value = value;
    Dictionary_Link(&dict->entries, entry);
    HashTable_Insert(dict->names, entry->name, entry);
    dict->entryCount++;
    return entry;
}

void *DictionaryGetTyped(Dictionary *dict, const void *defaultValue, DictionaryType type, const char *name) {
    DictionaryEntry *entry = Dictionary_Find(dict, name);
    if (entry == nullptr) {
        entry = Dictionary_Add(dict, name, type, CopyValue(type, defaultValue));
    }
    if (entry->type == DICT_ANY && type != DICT_ANY) {
        Dictionary_Convert(entry, type);
    }
    // A second read of another type would take the value's bytes for what they are not.
    if (entry->type != type && !(IsText(entry->type) && IsText(type))) {
        PanicInconsistent();
    }
    return &entry->value;
}

char *DictionaryGetString(Dictionary *dict, const char *defaultValue, const char *nameFormat, ...) {
    char name[NAME_SIZE];
    va_list args;
    va_start(args, nameFormat);
    Str_Vsnprintf(name, sizeof name, nameFormat, args);
    va_end(args);
    return Mem_Strdup(*static_cast<char **>(DictionaryGetTyped(dict, &defaultValue, DICT_STRING, name)));
}
