#include "lib/harbrel/database/logSettings.h"

#include <cstring>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cache.h"
#include "lib/string/str.h"

uint32_t HBLGetDefaultLogLevel() {
    int32_t level = -1;
    if (!HBLNetCfgGetAnswerInt32(nullptr, HBL_LOGLEVEL_KEY, &level) || level < 0) {
        return HBL_DEFAULT_LOG_MASK;
    }
    return static_cast<uint32_t>(level);
}

bool HBLSetDefaultLogLevel(uint32_t level) {
    char text[16];
    Str_Sprintf(text, sizeof text, "0x%x", level);
    return HBLNetCfgAddAnswerString(nullptr, HBL_LOGLEVEL_KEY, text);
}

bool HBLGetLogFileName(char *path, size_t size) {
    const auto stored = HBLNetCfgCopyAnswer(nullptr, HBL_LOG_FILE_KEY);
    if (!stored.has_value() || stored->size() >= size) {
        return false;
    }
    memcpy(path, stored->c_str(), stored->size() + 1);
    return true;
}
