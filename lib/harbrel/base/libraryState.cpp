#include "lib/harbrel/base/libraryState.h"

#include <atomic>

#include "lib/harbrel/base/hblLog.h"

namespace {

// Changed by the thread that loads and unloads, asked for by all.
std::atomic<uint16_t> loadCount = 0;

}  // namespace

bool HBLIsLoaded() {
    return loadCount != 0;
}

bool HBLAddLoad() {
    if (loadCount == UINT16_MAX) {
        return false;
    }
    ++loadCount;
    return true;
}

bool HBLDropLoad() {
    return --loadCount == 0;
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
