#include "lib/harbrel/parameters/fileUpdate.h"

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/services/daemons.h"

bool HBLApiUpdateFromConfig(const FileUpdateWords &words, const char *vnet) {
    const ApiFrame frame(words.function);
    uint32_t number = 0;
    if (!frame.Passed() || !ApiOnlyVnetArgument(words.function, vnet, &number, "zelan")) {
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
