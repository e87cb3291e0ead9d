// The preference store. It is never opened in this product, so every read gives the default.
#pragma once

#include "lib/misc/dictionaryType.h"

// Gives back `defaultValue` itself, whatever the type, and logs the name.
const void *PreferenceGet(const void *defaultValue, DictionaryType type, const char *name);
// Formats the name into 1024 bytes and reads a preference of type DICT_BOOL.
bool Config_GetBool(bool defaultValue, const char *nameFormat, ...) __attribute__((format(printf, 2, 3)));
