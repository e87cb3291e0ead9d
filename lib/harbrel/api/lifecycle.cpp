#include <cerrno>
#include <cstdint>
#include <cstring>

#include "lib/err/errText.h"
#include "lib/fatal/memory.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/libraryState.h"
#include "lib/harbrel/base/services.h"
#include "lib/harbrel/bridging/bridging.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/database/logSettings.h"
#include "lib/harbrel/files/fileDB.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/harbrel.h"

namespace {

constexpr const char *LOAD = "HBL_Load";

// Goes over to the log file that the database names, if that is another one and can be opened.
void SwitchLogFile() {
    char path[HBL_LOG_FILE_SIZE];
    if (!HBLGetLogFileName(path, sizeof path) || strcmp(path, HBL_DEFAULT_LOG_FILE) == 0) {
        return;
    }
    if (!HBLLogOpen(path)) {
        HBLLog(LOG_ERR, LOAD, "fopen: opening log file: %s failed, error: %s", path, Err_ErrnoText(errno));
    }
}

// One line at each level: which of them reach the file shows the bits of the mask.
void LogTestLines() {
    HBLLog(LOG_ERR, LOAD, "LOG_ERR logged");
    HBLLog(LOG_ERRCMN, LOAD, "LOG_ERRCMN logged");
    HBLLog(LOG_WRN, LOAD, "LOG_WRN logged");
    HBLLog(LOG_OK, LOAD, "LOG_OK logged");
    HBLLog(LOG_INFO, LOAD, "LOG_INFO logged");
    HBLLog(LOG_INFO2, LOAD, "LOG_INFO2 logged");
    HBLLog(LOG_ARGS, LOAD, "LOG_ARGS logged");
    HBLLog(LOG_INFO, LOAD, "Config file used: %s", HBL_NETWORKING_DB);
}

// Everything between the entering and the exiting line of a first load.
bool BringUp() {
    if (!HBLNetCfgLoad(HBL_NETWORKING_DB, nullptr, false)) {
        HBLLog(LOG_ERR, LOAD, "Error loading the vnet configuration, file used: %s", HBL_NETWORKING_DB);
        HBLNetCfgUnload(nullptr, false);
        HBLFileDBUnload();
        return false;
    }
    HBLFileDBLoad();
    HBLLogSetMask(HBLGetDefaultLogLevel());
    SwitchLogFile();
    LogTestLines();
    HBLGetDefaultBridgeVnet(nullptr);  // read here once, so that it is cached
    HBLSetLoadCount(1);
    HBLLog(LOG_OK, LOAD, "Successfully initialized Harbrel");
    return true;
}

}  // namespace

bool HBL_Load(void) {
    if (HBLIsLoaded()) {
        if (HBLLoadCount() == UINT16_MAX) {
            HBLLog(LOG_ERR, __func__, "harbrel is loaded too many times: %u", HBLLoadCount());
            return false;
        }
        HBLSetLoadCount(static_cast<uint16_t>(HBLLoadCount() + 1));
        HBLLog(LOG_INFO, __func__, "harbrel is already loaded");
        return true;
    }
    Mem_InstallNewHandler();
    if (!HBLLogOpen(HBL_DEFAULT_LOG_FILE)) {
        Mem_RemoveNewHandler();
        return false;
    }
    HBLLogSetMask(HBL_DEFAULT_LOG_MASK);
    ApiLogEntering(__func__);
    const bool loaded = BringUp();
    ApiLogExiting(__func__);
    if (!loaded) {
        Mem_RemoveNewHandler();
    }
    return loaded;
}

void HBL_Unload(void) {
    ApiLogEntering(__func__);
    if (!HBLIsLoaded()) {
        HBLLog(LOG_INFO, __func__, "harbrel is not loaded");
    } else {
        HBLSetLoadCount(static_cast<uint16_t>(HBLLoadCount() - 1));
        if (!HBLIsLoaded()) {
            HBLNetCfgUnload(nullptr, true);
            HBLFileDBUnload();
            HBLLog(LOG_OK, __func__, "Harbrel unloaded.");
            HBLLogClose();
            Mem_RemoveNewHandler();
        }
    }
    ApiLogExiting(__func__);
}

uint32_t HBL_GetNumVnets(void) {
    return HBL_NUM_VNETS;
}
