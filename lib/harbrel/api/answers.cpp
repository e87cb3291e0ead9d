// The calls on single answers, and the levels of the log.
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/libraryState.h"
#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/database/logSettings.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/harbrel.h"

namespace {

// The short frame of the answer calls: no entering, argument or exiting line.
bool AnswerCallIsGood(FunctionLog log, bool argumentsGiven) {
    if (!HBLIsLoaded()) {
        log(LOG_ERR, "Harbrel Un-Initialized, Aborting\n");
        return false;
    }
    if (!argumentsGiven) {
        log(LOG_ERR, "Invalid argument");
        return false;
    }
    return true;
}

}  // namespace

bool HBL_VnetCfgGetAnswer(const char *key, const char **value) {
    return AnswerCallIsGood(__func__, key != nullptr && value != nullptr) &&
           HBLNetCfgGetAnswerString(nullptr, key, value);
}

bool HBL_VnetCfgAddAnswer(const char *key, const char *value) {
    return AnswerCallIsGood(__func__, key != nullptr && value != nullptr) &&
           HBLNetCfgChangeWithoutLock(nullptr,
                                      [key, value] { return HBLNetCfgAddAnswerString(nullptr, key, value); });
}

bool HBL_VnetCfgRemoveAnswer(const char *key) {
    return AnswerCallIsGood(__func__, key != nullptr) &&
           HBLNetCfgChangeWithoutLock(nullptr, [key] { return HBLNetCfgRemoveAnswer(nullptr, key); });
}

bool HBL_SetDefaultLogLevel(uint32_t level) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    frame.log(LOG_ARGS, "Arguments - l: %u", level);
    if (level > HBL_MAX_LOG_MASK) {
        frame.log(LOG_ERR, "Invalid log level: %x, max log level: %x", level, HBL_MAX_LOG_MASK);
        return false;
    }
    const ConfigLock lock(frame.log);
    return lock.Held() && HBLSetDefaultLogLevel(level);
}

bool HBL_SetLogLevel(uint32_t mask) {
    HBLLogSetMask(mask);
    return true;
}

uint32_t HBL_GetLogLevel(void) {
    return HBLLogMask();
}
