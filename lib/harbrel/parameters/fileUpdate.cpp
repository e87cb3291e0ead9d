#include "lib/harbrel/parameters/fileUpdate.h"

#include "lib/harbrel/database/database.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/harbrel.h"
#include "lib/harbrel/services/daemons.h"

bool HBLApiUpdateFromConfig(const char *function, const FileUpdate &file, const char *vnet) {
    const ApiFrame frame(function);
    uint32_t number = 0;
    if (!frame.Passed() || !ApiOnlyVnetArgument(frame.log, vnet, &number, "zelan")) {
        return false;
    }
    frame.log(LOG_INFO2, "Checking to see if %s service is running", file.service);
    if (HBLServiceStatus(number, file.serviceId) != HBL_SERVICE_STATUS_STOPPED) {
        frame.log(LOG_ERR, "%s", file.notStopped);
        return false;
    }
    const ConfigLock lock(frame.log);
    if (!lock.Held()) {
        return false;
    }
    const char *action = file.isSwitchedOn(number) ? "Writing" : "Removing";
    const bool updated = file.update(number);
    frame.log(updated ? LOG_OK : LOG_ERR, "%s %s configuration file %s for vnet: %s", action, file.service,
              updated ? "succeeded" : "failed", vnet);
    return updated;
}
