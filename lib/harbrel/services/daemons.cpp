// Status, stop and restart of the daemons, all by PID file and signal.
#include "lib/harbrel/services/daemons.h"

#include <signal.h>

#include <cerrno>

#include "lib/err/errText.h"
#include "lib/file/posix.h"
#include "lib/harbrel/base/functionTrace.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/services.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/misc/owners.h"

namespace {

uint32_t StatusOfProcess(FunctionLog log, const char *displayName, uint32_t vnet, long pid) {
    if (kill(static_cast<pid_t>(pid), 0) == 0) {
        log(LOG_INFO2, "Successfully tracked %s daemon on vnet: %d, pid: %ld", displayName,
            static_cast<int>(vnet), pid);
        return HBL_SERVICE_STATUS_RUNNING;
    }
    if (errno == ESRCH) {
        log(LOG_ERR, "pid: %ld for %s service daemon on vnet: %d is stale", pid, displayName,
            static_cast<int>(vnet));
        return HBL_SERVICE_STATUS_STOPPED;
    }
    log(LOG_ERR, "kill(): failed for pid: %ld, error: %s", pid, Err_LastErrnoText());
    return HBL_SERVICE_STATUS_ERROR;
}

void SetIfWanted(bool *out, bool value) {
    if (out != nullptr) {
        *out = value;
    }
}

}  // namespace

uint32_t HBLServiceStatus(uint32_t vnet, uint32_t service) {
    const FunctionTrace trace(__func__);
    char *path = nullptr;
    const char *displayName = "";
    if (!HBLGetPidFilename(vnet, service, &path, &displayName)) {
        return HBL_SERVICE_STATUS_ERROR;
    }
    const MallocString owner(path);
    bool openFailed = false;
    const int32_t pid = HBLExtractPidFromFile(path, &openFailed);
    if (pid < 1) {
        HBLLog(LOG_ERR, __func__, "Could not extract PID of %s", displayName);
        return openFailed ? HBL_SERVICE_STATUS_STOPPED : HBL_SERVICE_STATUS_ERROR;
    }
    return StatusOfProcess(__func__, displayName, vnet, pid);
}

// Without an exiting line, unlike the others.
bool HBLServiceStop(uint32_t vnet, uint32_t service) {
    HBLLog(LOG_INFO2, __func__, " Entering Function, %s:%d", __func__, __LINE__);
    char *path = nullptr;
    const char *displayName = "";
    if (!HBLGetPidFilename(vnet, service, &path, &displayName)) {
        return false;
    }
    const MallocString owner(path);
    bool openFailed = false;
    const long pid = HBLExtractPidFromFile(path, &openFailed);
    if (pid < 1) {
        HBLLog(LOG_WRN, __func__, "Could not extract PID of %s", displayName);
        return openFailed;
    }
    if (kill(static_cast<pid_t>(pid), SIGKILL) != 0 && errno != ESRCH) {
        HBLLog(LOG_ERR, __func__, "Could not kill %s service daemon, pid: %ld, error: %s", displayName, pid,
               Err_LastErrnoText());
        return false;
    }
    HBLLog(LOG_INFO, __func__, "Successfully killed %s service daemon, pid: %ld, errno: %d", displayName, pid,
           errno);
    // A daemon that dies by SIGKILL cannot remove its own file.
    static_cast<void>(Posix_Unlink(path));
    return true;
}

bool HBLRestartService(uint32_t vnet, uint32_t service, bool *wasRunning, bool *restarted, bool force) {
    const int number = static_cast<int>(vnet);
    const uint32_t option = HBLServiceToVnetOption(service);
    if (option == HBL_OPTION_NONE) {
        HBLLog(LOG_ERR, __func__, "Unknown service: %d", static_cast<int>(service));
        return false;
    }
    const uint32_t status = HBLServiceStatus(vnet, service);
    if (status == HBL_SERVICE_STATUS_ERROR) {
        HBLLog(LOG_ERR, __func__, "Cannot determine status of service: %u on vnet: %d", service, number);
        return false;
    }
    SetIfWanted(wasRunning, status == HBL_SERVICE_STATUS_RUNNING);
    if (status == HBL_SERVICE_STATUS_RUNNING) {
        if (!HBLServiceStop(vnet, service)) {
            HBLLog(LOG_ERR, __func__, "Failed to stop service: %u for vnet: %d", service, number);
            return false;
        }
    } else {
        HBLLog(LOG_INFO2, __func__, "Service: %u is not running on vnet: %d", service, number);
        if (!force) {
            return true;
        }
    }
    const bool configured = HBLVnetIsOptionConfigured(vnet, option);
    if (!configured) {
        HBLLog(LOG_INFO2, __func__,
               "Service: %u could not be restarted since it is not configured for vnet: %d", service, number);
    } else if (!HBLServiceStart(vnet, service)) {
        HBLLog(LOG_ERR, __func__, "Failed to start service: %u for vnet: %d", service, number);
        return false;
    }
    SetIfWanted(restarted, configured);
    return true;
}
