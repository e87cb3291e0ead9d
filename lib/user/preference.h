// The preference store. It is never opened in this product, so every read gives the default.
#pragma once

// Types of a dictionary value; an entry read from a file starts as DICT_ANY and is converted by its first
// typed read.
enum DictionaryType : int {
    DICT_ANY = 0,
    DICT_STRING = 1,
    DICT_BOOL = 2,
    DICT_LONG = 3,
    DICT_DOUBLE = 4,
    DICT_TRISTATE = 5,
    DICT_INT64 = 6,
};

// Gives back `defaultValue` itself, whatever the type, and logs the name.
const void *PreferenceGet(const void *defaultValue, DictionaryType type, const char *name);
// Formats the name into 1024 bytes and reads a preference of type DICT_BOOL.
bool Config_GetBool(bool defaultValue, const char *nameFormat, ...) __attribute__((format(printf, 2, 3)));
