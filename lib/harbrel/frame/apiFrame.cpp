#include "lib/harbrel/frame/apiFrame.h"

#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/libraryState.h"
#include "lib/harbrel/base/services.h"

ApiFrame::ApiFrame(const char *function, Ending ending, int line)
    : function_(function),
      line_(line),
      loaded_(HBLIsLoaded()),
      exitingLine_(ending == Ending::WithExitingLine) {
    ApiLogEntering(function, line);
    if (!loaded_) {
        HBLLog(LOG_ERR, function, "Harbrel Un-Initialized. Aborting API Function: %s", function);
    }
}

ApiFrame::~ApiFrame() {
    if (loaded_ && exitingLine_) {
        ApiLogExiting(function_, line_);
    }
}

void ApiLogEntering(const char *function, int line) {
    HBLLog(LOG_INFO2, nullptr, "\n----------------------------------\nEntering API Function, %s:%d\n",
           function, line);
}

void ApiLogExiting(const char *function, int line) {
    HBLLog(LOG_INFO2, nullptr, "\nExiting API Function, %s:%d\n-----------\n", function, line);
}

bool ApiVnetArgument(const char *function, const char *vnet, uint32_t *number, const char *called) {
    if (vnet == nullptr) {
        HBLLog(LOG_ERR, function, "Invalid argument - %s: %p", called, static_cast<const void *>(vnet));
        return false;
    }
    return ApiVnetNumber(function, vnet, number);
}

bool ApiOnlyVnetArgument(const char *function, const char *vnet, uint32_t *number, const char *called) {
    HBLLog(LOG_ARGS, function, "Arguments - v: %p,%s", static_cast<const void *>(vnet), TextOrNull(vnet));
    return ApiVnetArgument(function, vnet, number, called);
}

bool ApiVnetNumber(const char *function, const char *vnet, uint32_t *number) {
    const uint32_t found = HBLVnetNameToNum(vnet);
    if (found >= HBL_NUM_VNETS) {
        HBLLog(LOG_ERR, function, "Invalid vnet name: %s", vnet);
        return false;
    }
    *number = found;
    return true;
}
