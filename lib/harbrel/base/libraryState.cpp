#include "lib/harbrel/base/libraryState.h"

#include "lib/harbrel/base/hblLog.h"

namespace {

uint16_t loadCount = 0;

}  // namespace

uint16_t HBLLoadCount() {
    return loadCount;
}

void HBLSetLoadCount(uint16_t count) {
    loadCount = count;
}

ShortLog::ShortLog() {
    if (!HBLIsLoaded()) {
        HBLLogOpen(HBL_DEFAULT_LOG_FILE);
        HBLLogSetMask(HBL_DEFAULT_LOG_MASK);
    }
}

ShortLog::~ShortLog() {
    if (!HBLIsLoaded()) {
        HBLLogClose();
    }
}
