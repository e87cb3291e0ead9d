// Exported: device nodes, and the host-only adapter's state, bring-up, take-down and update.
#include "lib/harbrel/virtualadapter/virtualAdapter.h"

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/services.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/files/files.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/harbrel.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/harbrel/services/daemons.h"

namespace {

// Whether netifup runs in the end. *wasStopped: it did not before, so that this call has to clean up.
bool EnsureNetifup(const char *function, const char *vnet, uint32_t number, bool *wasStopped) {
    const uint32_t status = HBLServiceStatus(number, HBL_SVC_NETIFUP);
    *wasStopped = status == HBL_SERVICE_STATUS_STOPPED;
    if (status == HBL_SERVICE_STATUS_ERROR) {
        HBLLog(LOG_ERR, function, "Could not determine status of netifup service");
        return false;
    }
    if (!*wasStopped) {
        HBLLog(LOG_INFO2, function, "netifup service is already running on vnet: %s", vnet);
        return true;
    }
    HBLLog(LOG_INFO2, function, "Starting netifup service on vnet: %s", vnet);
    if (!HBLServiceStart(number, HBL_SVC_NETIFUP)) {
        HBLLog(LOG_ERR, function, "Failure in starting netifup service on vnet: %s", vnet);
        return false;
    }
    return true;
}

bool EnableInterface(const char *function, const char *vnet, uint32_t number) {
    if (!HBLVirtAdapterEnable(number)) {
        HBLLog(LOG_ERR, function, "Failed to enable hostonly adapter on vnet: %s", vnet);
        return false;
    }
    HBLLog(LOG_OK, function, "Successfully enabled hostonly adapter on vnet: %s", vnet);
    return true;
}

void StopNetifupAgain(const char *function, const char *vnet, uint32_t number) {
    if (HBLServiceStop(number, HBL_SVC_NETIFUP)) {
        HBLLog(LOG_INFO2, function, "Stopped netifup service on vnet: %s during cleanup", vnet);
    } else {
        HBLLog(LOG_ERR, function, "Failure in stopping netifup service on vnet: %s during cleanup", vnet);
    }
}

// Device node, daemon, ioctls: the daemon opens the node, and the ioctls need the interface that the daemon
// keeps. A daemon that this call started does not outlive a failure; the node stays.
bool BringUp(const char *function, const char *vnet, uint32_t number) {
    if (!HBLCreateFile(number, HBL_FILE_DEVICE, nullptr)) {
        HBLLog(LOG_ERR, function, "Failed to create required zelan device before starting netifup service");
        return false;
    }
    HBLLog(LOG_INFO2, function, "Success in creating zelan device before starting netifup service");
    bool wasStopped = false;
    if (EnsureNetifup(function, vnet, number, &wasStopped) && EnableInterface(function, vnet, number)) {
        return true;
    }
    if (wasStopped) {
        StopNetifupAgain(function, vnet, number);
    }
    return false;
}

// For an adapter that is no longer configured: interface and daemon go, each whether or not the other did.
bool TakeDownUnconfigured(const char *function, const char *vnet, uint32_t number) {
    HBLLog(LOG_ERR, function, "Hostonly adapter not configured for vnet: %s", vnet);
    const bool disabled = HBLVirtAdapterDisable(number);
    if (!disabled) {
        char name[HBL_ADAPTER_NAME_SIZE];
        const bool named = HBLGetVnetVirtAdapterName(number, name, sizeof name);
        HBLLog(LOG_ERR, function, "Failed to disable hostonly adapter: %s for vnet: %s", named ? name : vnet,
               vnet);
    }
    const bool stopped = HBLServiceStop(number, HBL_SVC_NETIFUP);
    if (!stopped) {
        HBLLog(LOG_ERR, function, "Failed to stop netifup service for vnet: %s", vnet);
    }
    return disabled && stopped;
}

// Down and up is how new values reach an interface that is up; one that is down is left alone.
bool UpdateConfigured(const char *function, const char *vnet, uint32_t number) {
    char name[HBL_ADAPTER_NAME_SIZE];
    if (!HBLGetVnetVirtAdapterName(number, name, sizeof name)) {
        HBLLog(LOG_ERR, function, "Failed to get the name of hostonly adapter for vnet: %s", vnet);
        return false;
    }
    const uint32_t status = HBLAdapterStatus(name);
    if (status == HBL_ADAPTER_STATUS_DOWN || status == HBL_ADAPTER_STATUS_ABSENT) {
        HBLLog(LOG_ERR, function, "Adapter is currently disabled, nothing to update on vnet: %s", vnet);
        return true;
    }
    if (status == HBL_ADAPTER_STATUS_UP) {
        if (!HBLVirtAdapterDisable(number)) {
            HBLLog(LOG_ERR, function, "Failed to disable hostonly adapter: %s for vnet: %s", name, vnet);
            return false;
        }
        HBLLog(LOG_INFO, function, "Successfully disabled hostonly adapter: %s for vnet: %s", name, vnet);
    }
    if (!HBLVirtAdapterEnable(number)) {
        HBLLog(LOG_ERR, function, "Failed to enable the virtual adapter on vnet: %s", vnet);
        return false;
    }
    HBLLog(LOG_OK, function, "Successfully updated adapter from config on vnet: %s", vnet);
    return true;
}

}  // namespace

bool HBL_CreateZelanDevice(const char *vnet) {
    const ApiFrame frame(__func__);
    return frame.Passed() && HBLCreateDeleteZelanDevice(vnet, true);
}

bool HBL_DeleteZelanDevice(const char *vnet) {
    const ApiFrame frame(__func__);
    return frame.Passed() && HBLCreateDeleteZelanDevice(vnet, false);
}

bool HBL_GetVnetAdapterStatus(const char *vnet, bool *installed, bool *enabled) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    const void *const pointers[] = {vnet, installed, enabled};
    HBLLog(LOG_ARGS, __func__, "Arguments - v: %p,%s, i: %p, e: %p", pointers[0], TextOrNull(vnet),
           pointers[1], pointers[2]);
    if (vnet == nullptr || installed == nullptr || enabled == nullptr) {
        HBLLog(LOG_ERR, __func__, "Invalid argument - vnet: %p, installed: %p, e: %p", pointers[0],
               pointers[1], pointers[2]);
        return false;
    }
    uint32_t number = 0;
    if (!ApiVnetNumber(__func__, vnet, &number)) {
        return false;
    }
    if (!HBLVnetIsOptionConfigured(number, HBL_OPTION_VIRTUAL_ADAPTER)) {
        *installed = false;
        *enabled = false;
        HBLLog(LOG_ERR, __func__, "Hostonly virtual adapter is not configured on vnet: %s", vnet);
        return true;
    }
    *installed = true;
    HBLLog(LOG_INFO2, __func__, "Hostonly virtual adapter is configured on vnet: %s", vnet);
    char name[HBL_ADAPTER_NAME_SIZE];
    if (!HBLGetVnetVirtAdapterName(number, name, sizeof name)) {
        HBLLog(LOG_ERR, __func__, "Failed to get the name of hostonly adapter for vnet: %s", vnet);
        return false;
    }
    const uint32_t status = HBLAdapterStatus(name);
    if (status == HBL_ADAPTER_STATUS_ERROR) {
        HBLLog(LOG_ERR, __func__, "Could not determing runtime status of adapter on vnet: %s", vnet);
        return false;
    }
    *enabled = status == HBL_ADAPTER_STATUS_UP;
    HBLLog(LOG_INFO2, __func__, "Hostonly virtual adapter is %s on vnet: %s",
           *enabled ? "enabled" : "disabled", vnet);
    return true;
}

bool HBL_EnableNetworkAdapter(const char *vnet) {
    const ApiFrame frame(__func__);
    uint32_t number = 0;
    if (!frame.Passed() || !ApiOnlyVnetArgument(__func__, vnet, &number)) {
        return false;
    }
    if (!HBLVnetIsOptionConfigured(number, HBL_OPTION_VIRTUAL_ADAPTER)) {
        HBLLog(LOG_ERR, __func__, "Hostonly adapter not configured for vnet: %s", vnet);
        return false;
    }
    char name[HBL_ADAPTER_NAME_SIZE];
    if (!HBLGetVnetVirtAdapterName(number, name, sizeof name)) {
        HBLLog(LOG_ERR, __func__, "Failed to get the virtual adapter's name");
        return false;
    }
    if (HBLAdapterStatus(name) == HBL_ADAPTER_STATUS_UP) {
        HBLLog(LOG_INFO2, __func__, "Adapter is already enabled");
        return true;
    }
    const ConfigLock lock(__func__, "Failed to obtain lock for vnet config");
    return lock.Held() && BringUp(__func__, vnet, number);
}

bool HBL_DisableNetworkAdapter(const char *vnet) {
    const ApiFrame frame(__func__);
    uint32_t number = 0;
    if (!frame.Passed() || !ApiOnlyVnetArgument(__func__, vnet, &number)) {
        return false;
    }
    char name[HBL_ADAPTER_NAME_SIZE];
    if (!HBLGetVnetVirtAdapterName(number, name, sizeof name)) {
        HBLLog(LOG_ERR, __func__, "Failed to get the name of hostonly adapter for vnet: %s", vnet);
        return false;
    }
    if (HBLAdapterStatus(name) == HBL_ADAPTER_STATUS_ABSENT) {
        HBLLog(LOG_INFO2, __func__, "Hostonly adapter: %s does not exist", vnet);
        return true;
    }
    const ConfigLock lock(__func__);
    if (!lock.Held()) {
        return false;
    }
    if (HBLVirtAdapterDisable(number)) {
        HBLLog(LOG_INFO, __func__, "Successfully disabled hostonly adapter: %s for vnet: %s", name, vnet);
    } else {
        HBLLog(LOG_ERR, __func__, "Failed to disable hostonly adapter: %s for vnet: %s", name, vnet);
    }
    HBLLog(LOG_INFO2, __func__, "Attempting to stop netifup service on vnet: %s", vnet);
    if (!HBLServiceStop(number, HBL_SVC_NETIFUP)) {
        HBLLog(LOG_ERR, __func__, "Failed to stop netifup service on vnet: %s", vnet);
        return false;
    }
    HBLLog(LOG_INFO, __func__, "Stopped netifup service on vnet: %s", vnet);
    return true;
}

bool HBL_UpdateAdapterFromConfig(const char *vnet) {
    const ApiFrame frame(__func__);
    uint32_t number = 0;
    if (!frame.Passed() || !ApiOnlyVnetArgument(__func__, vnet, &number, "zelan")) {
        return false;
    }
    const ConfigLock lock(__func__);
    if (!lock.Held()) {
        return false;
    }
    return HBLVnetIsOptionConfigured(number, HBL_OPTION_VIRTUAL_ADAPTER)
               ? UpdateConfigured(__func__, vnet, number)
               : TakeDownUnconfigured(__func__, vnet, number);
}
