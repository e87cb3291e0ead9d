#include "lib/user/preference.h"

#include <cstdarg>
#include <cstring>

#include "lib/log/log.h"
#include "lib/string/str.h"

namespace {

constexpr size_t NAME_SIZE = 1024;

}  // namespace

const void *PreferenceGet(const void *defaultValue, DictionaryType /* type */, const char *name) {
    // A failure to convert a preference is itself reported through messages: this name stays silent.
    if (strcmp(name, "msg.dictionary.error") != 0) {
        Log("PREF early %s(%s), using default\n", __func__, name);
    }
    return defaultValue;
}

bool Config_GetBool(bool defaultValue, const char *nameFormat, ...) {
    char name[NAME_SIZE];
    va_list args;
    va_start(args, nameFormat);
    Str_Vsnprintf(name, sizeof name, nameFormat, args);
    va_end(args);
    return *static_cast<const bool *>(PreferenceGet(&defaultValue, DICT_BOOL, name));
}
