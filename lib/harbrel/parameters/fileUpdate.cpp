#include "lib/harbrel/parameters/fileUpdate.h"

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/services/daemons.h"

bool HBLApiUpdateFromConfig(const FileUpdateWords &words, const char *vnet) {
    const ApiFrame frame(words.function);
    if (!frame.Loaded()) {
        return false;
    }
    const void *vnetAddress = vnet;
    HBLLog(LOG_ARGS, words.function, "Arguments - v: %p,%s", vnetAddress, TextOrNull(vnet));
    if (vnet == nullptr) {
        HBLLog(LOG_ERR, words.function, "Invalid argument - zelan: %p", vnetAddress);
        return false;
    }
    uint32_t number;
    if (!ApiVnetNumber(words.function, vnet, &number)) {
        return false;
    }
    HBLLog(LOG_INFO2, words.function, "%s", words.checking);
    if (HBLServiceStatus(number, words.service) != HBL_SERVICE_STATUS_STOPPED) {
        HBLLog(LOG_ERR, words.function, "%s", words.notStopped);
        return false;
    }
    const ConfigLock lock(words.function);
    if (!lock.Held()) {
        return false;
    }
    const char *action = words.isSwitchedOn(number) ? "Writing" : "Removing";
    const bool updated = words.update(number);
    HBLLog(updated ? LOG_OK : LOG_ERR, words.function, updated ? words.done : words.failed, action, vnet);
    return updated;
}
