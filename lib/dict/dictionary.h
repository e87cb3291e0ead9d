// Dictionary files: lines of the form  name = "value"  in an encoding that the file may declare, and typed
// reads of what they hold. Problems go to the message list (lib/config/msg.h); the result says only true or
// false.
#pragma once

#include "lib/misc/dictionaryType.h"
#include "lib/unicode/unicode.h"

struct Dictionary;  // opaque

Dictionary *Dictionary_Create();  // out of memory is fatal
void Dictionary_Free(Dictionary *dict);
void Dictionary_Clear(Dictionary *dict);
// Clears the dictionary, then reads the regular file; "-" is standard input. A file that cannot be opened
// leaves the dictionary as it was. `entryClass` keeps its low four bits.
bool Dictionary_Load(Dictionary *dict, const char *path, int entryClass, StringEncoding defaultEncoding);
// A new text that the caller frees, or null when neither an entry nor a default is there.
char *DictionaryGetString(Dictionary *dict, const char *defaultValue, const char *nameFormat, ...)
    __attribute__((format(printf, 3, 4)));
// The address of the entry's value, converted to `type` at the first typed read (char * for strings, bool,
// int32_t, double, int64_t, and int for tristates). *defaultValue has the same form and is stored when the
// name is missing. Reading a converted value as another type stops the process.
void *DictionaryGetTyped(Dictionary *dict, const void *defaultValue, DictionaryType type, const char *name);
