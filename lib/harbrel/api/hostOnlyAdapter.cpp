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
bool EnsureNetifup(FunctionLog log, const char *vnet, uint32_t number, bool *wasStopped) {
    const uint32_t status = HBLServiceStatus(number, HBL_SVC_NETIFUP);
    *wasStopped = status == HBL_SERVICE_STATUS_STOPPED;
    if (status == HBL_SERVICE_STATUS_ERROR) {
        log(LOG_ERR, "Could not determine status of netifup service");
        return false;
    }
    if (!*wasStopped) {
        log(LOG_INFO2, "netifup service is already running on vnet: %s", vnet);
        return true;
    }
    log(LOG_INFO2, "Starting netifup service on vnet: %s", vnet);
    if (!HBLServiceStart(number, HBL_SVC_NETIFUP)) {
        log(LOG_ERR, "Failure in starting netifup service on vnet: %s", vnet);
        return false;
    }
    return true;
}

bool EnableInterface(FunctionLog log, const char *vnet, uint32_t number) {
    if (!HBLVirtAdapterEnable(number)) {
        log(LOG_ERR, "Failed to enable hostonly adapter on vnet: %s", vnet);
        return false;
    }
    log(LOG_OK, "Successfully enabled hostonly adapter on vnet: %s", vnet);
    return true;
}

void StopNetifupAgain(FunctionLog log, const char *vnet, uint32_t number) {
    if (HBLServiceStop(number, HBL_SVC_NETIFUP)) {
        log(LOG_INFO2, "Stopped netifup service on vnet: %s during cleanup", vnet);
    } else {
        log(LOG_ERR, "Failure in stopping netifup service on vnet: %s during cleanup", vnet);
    }
}

// Device node, daemon, ioctls: the daemon opens the node, and the ioctls need the interface that the daemon
// keeps. A daemon that this call started does not outlive a failure; the node stays.
bool BringUp(FunctionLog log, const char *vnet, uint32_t number) {
    if (!HBLCreateFile(number, HBL_FILE_DEVICE, nullptr)) {
        log(LOG_ERR, "Failed to create required zelan device before starting netifup service");
        return false;
    }
    log(LOG_INFO2, "Success in creating zelan device before starting netifup service");
    bool wasStopped = false;
    if (EnsureNetifup(log, vnet, number, &wasStopped) && EnableInterface(log, vnet, number)) {
        return true;
    }
    if (wasStopped) {
        StopNetifupAgain(log, vnet, number);
    }
    return false;
}

// For an adapter that is no longer configured: interface and daemon go, each whether or not the other did.
bool TakeDownUnconfigured(FunctionLog log, const char *vnet, uint32_t number) {
    log(LOG_ERR, "Hostonly adapter not configured for vnet: %s", vnet);
    const bool disabled = HBLVirtAdapterDisable(number);
    if (!disabled) {
        char name[HBL_ADAPTER_NAME_SIZE];
        const bool named = HBLGetVnetVirtAdapterName(number, name, sizeof name);
        log(LOG_ERR, "Failed to disable hostonly adapter: %s for vnet: %s", named ? name : vnet, vnet);
    }
    const bool stopped = HBLServiceStop(number, HBL_SVC_NETIFUP);
    if (!stopped) {
        log(LOG_ERR, "Failed to stop netifup service for vnet: %s", vnet);
    }
    return disabled && stopped;
}

// Down and up is how new values reach an interface that is up; one that is down is left alone.
bool UpdateConfigured(FunctionLog log, const char *vnet, uint32_t number) {
    char name[HBL_ADAPTER_NAME_SIZE];
    if (!HBLGetVnetVirtAdapterName(number, name, sizeof name)) {
        log(LOG_ERR, "Failed to get the name of hostonly adapter for vnet: %s", vnet);
        return false;
    }
    const uint32_t status = HBLAdapterStatus(name);
    if (status == HBL_ADAPTER_STATUS_DOWN || status == HBL_ADAPTER_STATUS_ABSENT) {
        log(LOG_ERR, "Adapter is currently disabled, nothing to update on vnet: %s", vnet);
        return true;
    }
    if (status == HBL_ADAPTER_STATUS_UP) {
        if (!HBLVirtAdapterDisable(number)) {
            log(LOG_ERR, "Failed to disable hostonly adapter: %s for vnet: %s", name, vnet);
            return false;
        }
        log(LOG_INFO, "Successfully disabled hostonly adapter: %s for vnet: %s", name, vnet);
    }
    if (!HBLVirtAdapterEnable(number)) {
        log(LOG_ERR, "Failed to enable the virtual adapter on vnet: %s", vnet);
        return false;
    }
    log(LOG_OK, "Successfully updated adapter from config on vnet: %s", vnet);
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
    frame.log(LOG_ARGS, "Arguments - v: %p,%s, i: %p, e: %p", Address(vnet), TextOrNull(vnet),
              Address(installed), Address(enabled));
    if (vnet == nullptr || installed == nullptr || enabled == nullptr) {
        frame.log(LOG_ERR, "Invalid argument - vnet: %p, installed: %p, e: %p", Address(vnet),
                  Address(installed), Address(enabled));
        return false;
    }
    uint32_t number = 0;
    if (!ApiVnetNumber(frame.log, vnet, &number)) {
        return false;
    }
    if (!HBLVnetIsOptionConfigured(number, HBL_OPTION_VIRTUAL_ADAPTER)) {
        *installed = false;
        *enabled = false;
        frame.log(LOG_ERR, "Hostonly virtual adapter is not configured on vnet: %s", vnet);
        return true;
    }
    *installed = true;
    frame.log(LOG_INFO2, "Hostonly virtual adapter is configured on vnet: %s", vnet);
    char name[HBL_ADAPTER_NAME_SIZE];
    if (!HBLGetVnetVirtAdapterName(number, name, sizeof name)) {
        frame.log(LOG_ERR, "Failed to get the name of hostonly adapter for vnet: %s", vnet);
        return false;
    }
    const uint32_t status = HBLAdapterStatus(name);
    if (status == HBL_ADAPTER_STATUS_ERROR) {
        frame.log(LOG_ERR, "Could not determing runtime status of adapter on vnet: %s", vnet);
        return false;
    }
    *enabled = status == HBL_ADAPTER_STATUS_UP;
    frame.log(LOG_INFO2, "Hostonly virtual adapter is %s on vnet: %s", *enabled ? "enabled" : "disabled",
              vnet);
    return true;
}

bool HBL_EnableNetworkAdapter(const char *vnet) {
    const ApiFrame frame(__func__);
    uint32_t number = 0;
    if (!frame.Passed() || !ApiOnlyVnetArgument(frame.log, vnet, &number)) {
        return false;
    }
    if (!HBLVnetIsOptionConfigured(number, HBL_OPTION_VIRTUAL_ADAPTER)) {
        frame.log(LOG_ERR, "Hostonly adapter not configured for vnet: %s", vnet);
        return false;
    }
    char name[HBL_ADAPTER_NAME_SIZE];
    if (!HBLGetVnetVirtAdapterName(number, name, sizeof name)) {
        frame.log(LOG_ERR, "Failed to get the virtual adapter's name");
        return false;
    }
    if (HBLAdapterStatus(name) == HBL_ADAPTER_STATUS_UP) {
        frame.log(LOG_INFO2, "Adapter is already enabled");
        return true;
    }
    const ConfigLock lock(frame.log, "Failed to obtain lock for vnet config");
    return lock.Held() && BringUp(frame.log, vnet, number);
}

bool HBL_DisableNetworkAdapter(const char *vnet) {
    const ApiFrame frame(__func__);
    uint32_t number = 0;
    if (!frame.Passed() || !ApiOnlyVnetArgument(frame.log, vnet, &number)) {
        return false;
    }
    char name[HBL_ADAPTER_NAME_SIZE];
    if (!HBLGetVnetVirtAdapterName(number, name, sizeof name)) {
        frame.log(LOG_ERR, "Failed to get the name of hostonly adapter for vnet: %s", vnet);
        return false;
    }
    if (HBLAdapterStatus(name) == HBL_ADAPTER_STATUS_ABSENT) {
        frame.log(LOG_INFO2, "Hostonly adapter: %s does not exist", vnet);
        return true;
    }
    const ConfigLock lock(frame.log);
    if (!lock.Held()) {
        return false;
    }
    if (HBLVirtAdapterDisable(number)) {
        frame.log(LOG_INFO, "Successfully disabled hostonly adapter: %s for vnet: %s", name, vnet);
    } else {
        frame.log(LOG_ERR, "Failed to disable hostonly adapter: %s for vnet: %s", name, vnet);
    }
    frame.log(LOG_INFO2, "Attempting to stop netifup service on vnet: %s", vnet);
    if (!HBLServiceStop(number, HBL_SVC_NETIFUP)) {
        frame.log(LOG_ERR, "Failed to stop netifup service on vnet: %s", vnet);
        return false;
    }
    frame.log(LOG_INFO, "Stopped netifup service on vnet: %s", vnet);
    return true;
}

bool HBL_UpdateAdapterFromConfig(const char *vnet) {
    const ApiFrame frame(__func__);
    uint32_t number = 0;
    if (!frame.Passed() || !ApiOnlyVnetArgument(frame.log, vnet, &number, "zelan")) {
        return false;
    }
    const ConfigLock lock(frame.log);
    if (!lock.Held()) {
        return false;
    }
    return HBLVnetIsOptionConfigured(number, HBL_OPTION_VIRTUAL_ADAPTER)
               ? UpdateConfigured(frame.log, vnet, number)
               : TakeDownUnconfigured(frame.log, vnet, number);
}
