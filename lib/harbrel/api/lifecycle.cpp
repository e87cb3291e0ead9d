#include <cerrno>
#include <cstdint>
#include <cstring>

#include "lib/err/errText.h"
#include "lib/fatal/memory.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/libraryState.h"
#include "lib/harbrel/base/services.h"
#include "lib/harbrel/bridging/bridging.h"
#include "lib/harbrel/cache/keptTexts.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/database/logSettings.h"
#include "lib/harbrel/files/fileDB.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/harbrel.h"

namespace {

// Goes over to the log file that the database names, if that is another one and can be opened.
void SwitchLogFile(FunctionLog log) {
    char path[HBL_LOG_FILE_SIZE];
    if (!HBLGetLogFileName(path, sizeof path) || strcmp(path, HBL_DEFAULT_LOG_FILE) == 0) {
        return;
    }
    if (!HBLLogOpen(path)) {
        log(LOG_ERR, "fopen: opening log file: %s failed, error: %s", path, Err_ErrnoText(errno));
    }
}

// One line at each level: which of them reach the file shows the bits of the mask.
void LogTestLines(FunctionLog log) {
    log(LOG_ERR, "LOG_ERR logged");
    log(LOG_ERRCMN, "LOG_ERRCMN logged");
    log(LOG_WRN, "LOG_WRN logged");
    log(LOG_OK, "LOG_OK logged");
    log(LOG_INFO, "LOG_INFO logged");
    log(LOG_INFO2, "LOG_INFO2 logged");
    log(LOG_ARGS, "LOG_ARGS logged");
    log(LOG_INFO, "Config file used: %s", HBL_NETWORKING_DB);
}

// Everything between the entering and the exiting line of a first load.
bool BringUp(FunctionLog log) {
    if (!HBLNetCfgLoad(HBL_NETWORKING_DB, nullptr, false)) {
        log(LOG_ERR, "Error loading the vnet configuration, file used: %s", HBL_NETWORKING_DB);
        HBLNetCfgUnload(nullptr, false);
        HBLFileDBUnload();
        return false;
    }
    HBLFileDBLoad();
    HBLLogSetMask(HBLGetDefaultLogLevel());
    SwitchLogFile(log);
    LogTestLines(log);
    HBLGetDefaultBridgeVnet(nullptr);  // read here once, so that it is cached
    HBLAddLoad();
    log(LOG_OK, "Successfully initialized Harbrel");
    return true;
}

}  // namespace

bool HBL_Load(void) {
    if (HBLIsLoaded()) {
        if (!HBLAddLoad()) {
            HBLLog(LOG_ERR, __func__, "harbrel is loaded too many times: %u", UINT16_MAX);
            return false;
        }
        HBLLog(LOG_INFO, __func__, "harbrel is already loaded");
        return true;
    }
    Mem_InstallNewHandler();
    if (!HBLLogOpen(HBL_DEFAULT_LOG_FILE)) {
        Mem_RemoveNewHandler();
        return false;
    }
    HBLLogSetMask(HBL_DEFAULT_LOG_MASK);
    const ApiFrame frame(__func__, ApiFrame::Kind::Always);
    const bool loaded = BringUp(frame.log);
    if (!loaded) {
        Mem_RemoveNewHandler();
    }
    return loaded;
}

void HBL_Unload(void) {
    const ApiFrame frame(__func__, ApiFrame::Kind::Always);
    if (!HBLIsLoaded()) {
        frame.log(LOG_INFO, "harbrel is not loaded");
    } else if (HBLDropLoad()) {
        HBLNetCfgUnload(nullptr, true);
        NetCfgForgetTexts();
        HBLFileDBUnload();
        frame.log(LOG_OK, "Harbrel unloaded.");
        HBLLogClose();
        Mem_RemoveNewHandler();
    }
}

uint32_t HBL_GetNumVnets(void) {
    return HBL_NUM_VNETS;
}
