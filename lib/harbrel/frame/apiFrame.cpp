#include "lib/harbrel/frame/apiFrame.h"

#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/base/libraryState.h"
#include "lib/harbrel/base/services.h"

namespace {

bool PassesLoadedTest(FunctionLog log, ApiFrame::Kind kind) {
    switch (kind) {
        case ApiFrame::Kind::Always:
            return true;
        case ApiFrame::Kind::WhileNotLoaded:
            if (HBLIsLoaded()) {
                log(LOG_ERR,
                    "harbrel is initialized, unload the data structures and delete existing networking "
                    "configuration database before creating new one");
                return false;
            }
            return true;
        default:
            if (!HBLIsLoaded()) {
                log(LOG_ERR, "Harbrel Un-Initialized. Aborting API Function: %s", log.Function());
                return false;
            }
            return true;
    }
}

}  // namespace

ApiFrame::ApiFrame(const char *function, Kind kind, int line) : log(function), line_(line) {
    HBLLog(LOG_INFO2, nullptr, "\n----------------------------------\nEntering API Function, %s:%d\n",
           function, line);
    passed_ = PassesLoadedTest(log, kind);
    exitingLine_ = passed_ && kind != Kind::WhileLoadedWithoutExit;
}

ApiFrame::~ApiFrame() {
    if (exitingLine_) {
        HBLLog(LOG_INFO2, nullptr, "\nExiting API Function, %s:%d\n-----------\n", log.Function(), line_);
    }
}

bool ApiVnetArgument(FunctionLog log, const char *vnet, uint32_t *number, const char *called) {
    if (vnet == nullptr) {
        log(LOG_ERR, "Invalid argument - %s: %p", called, static_cast<const void *>(vnet));
        return false;
    }
    return ApiVnetNumber(log, vnet, number);
}

bool ApiOnlyVnetArgument(FunctionLog log, const char *vnet, uint32_t *number, const char *called) {
    log(LOG_ARGS, "Arguments - v: %p,%s", static_cast<const void *>(vnet), TextOrNull(vnet));
    return ApiVnetArgument(log, vnet, number, called);
}

bool ApiVnetNumber(FunctionLog log, const char *vnet, uint32_t *number) {
    const uint32_t found = HBLVnetNameToNum(vnet);
    if (found >= HBL_NUM_VNETS) {
        log(LOG_ERR, "Invalid vnet name: %s", vnet);
        return false;
    }
    *number = found;
    return true;
}
