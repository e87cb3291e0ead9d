// Exported: asking for, stopping and starting one service on one network.
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/services.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/files/files.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/harbrel.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/harbrel/services/daemons.h"

namespace {

// The detection daemon belongs to no network; without a name it goes by this one.
constexpr const char *NETDETECT_VNET = "zelan0";

// What a caller has named, once it has been found valid.
struct ServiceTarget {
    const char *vnet;  // the network's name as the caller spelled it
    uint32_t number;
    uint32_t service;
    const char *displayName;
};

bool ReadTarget(const char *function, const char *vnet, uint32_t serviceType, ServiceTarget *target) {
    HBLLog(LOG_ARGS, function, "Arguments - v: %p,%s, sT: %u", static_cast<const void *>(vnet),
           TextOrNull(vnet), serviceType);
    const uint32_t service = HBLMapServiceType(serviceType);
    if (service == HBL_SVC_NONE || (vnet == nullptr && service != HBL_SVC_NETDETECT)) {
        HBLLog(LOG_ERR, function, "Invalid argument - vnet: %p, serviceType: %u",
               static_cast<const void *>(vnet), serviceType);
        return false;
    }
    target->vnet = vnet != nullptr ? vnet : NETDETECT_VNET;
    target->service = service;
    target->displayName = HBLServiceName(service);
    return ApiVnetNumber(function, target->vnet, &target->number);
}

// A daemon that cannot run without its generated file.
struct RequiredFile {
    uint32_t service;
    uint32_t fileType;
    const char *missing;
};

constexpr RequiredFile REQUIRED_FILES[] = {
    {HBL_SVC_NAT, HBL_FILE_NAT_CONF, "NAT configuration file needed for the service does not exist"},
    {HBL_SVC_DHCP, HBL_FILE_DHCP_CONF, "DHCP configuration file needed for the service does not exist"},
};

bool RequiredFilesExist(const char *function, const ServiceTarget &target) {
    for (const RequiredFile &row : REQUIRED_FILES) {
        if (row.service == target.service && !HBLFileExists(target.number, row.fileType, nullptr)) {
            HBLLog(LOG_ERR, function, "%s", row.missing);
            return false;
        }
    }
    return true;
}

bool MakesSenseOnVnet(const char *function, const ServiceTarget &target) {
    if (target.service == HBL_SVC_NETDETECT) {
        return true;
    }
    if (!HBLVnetIsOptionConfigured(target.number, HBLServiceToVnetOption(target.service))) {
        HBLLog(LOG_ERR, function, "\"%s\" service is not configured for this vnet", target.displayName);
        return false;
    }
    if (target.service != HBL_SVC_BRIDGE && !HBLVnetIsOptionConfigured(target.number, HBL_OPTION_SUBNET)) {
        HBLLog(LOG_ERR, function, "Subnet is not assigned, so service \"%s\" is invalid", target.displayName);
        return false;
    }
    return RequiredFilesExist(function, target);
}

bool StartUnderLock(const char *function, const ServiceTarget &target) {
    const ConfigLock lock(function);
    if (!lock.Held()) {
        return false;
    }
    if (!HBLCreateFile(target.number, HBL_FILE_DEVICE, nullptr)) {
        HBLLog(LOG_ERR, function, "Failed to create required vnet device before starting \"%s\" service",
               target.displayName);
        return false;
    }
    HBLLog(LOG_INFO2, function,
           "Success in creating zelan device before starting \"%s\" service for vnet: %s", target.displayName,
           target.vnet);
    if (!HBLServiceStart(target.number, target.service)) {
        HBLLog(LOG_ERR, function, "Failure in starting \"%s\" service for vnet: %s", target.displayName,
               target.vnet);
        return false;
    }
    HBLLog(LOG_OK, function, "Started \"%s\" service for vnet: %s", target.displayName, target.vnet);
    return true;
}

}  // namespace

uint32_t HBL_GetServiceStatus(const char *vnet, uint32_t serviceType) {
    const ApiFrame frame(__func__);
    if (!frame.Loaded()) {
        return 0;
    }
    ServiceTarget target;
    if (!ReadTarget(__func__, vnet, serviceType, &target)) {
        return HBL_SERVICE_STATUS_ERROR;
    }
    const uint32_t status = HBLServiceStatus(target.number, target.service);
    if (status == HBL_SERVICE_STATUS_ERROR) {
        HBLLog(LOG_ERR, __func__, "Failure in determining status of \"%s\" service on vnet: %s",
               target.displayName, target.vnet);
    } else {
        HBLLog(LOG_OK, __func__, "\"%s\" service is currently %s on vnet: %s", target.displayName,
               status == HBL_SERVICE_STATUS_STOPPED ? "stopped" : "running", target.vnet);
    }
    return status;
}

bool HBL_StopService(const char *vnet, uint32_t serviceType) {
    const ApiFrame frame(__func__, ApiFrame::Ending::WithoutExitingLine);
    if (!frame.Loaded()) {
        return false;
    }
    ServiceTarget target;
    if (!ReadTarget(__func__, vnet, serviceType, &target)) {
        return false;
    }
    const ConfigLock lock(__func__);
    if (!lock.Held()) {
        return false;
    }
    if (!HBLServiceStop(target.number, target.service)) {
        HBLLog(LOG_ERR, __func__, "Failure in stopping \"%s\" service on vnet: %s", target.displayName,
               target.vnet);
        return false;
    }
    HBLLog(LOG_OK, __func__, "Stopped \"%s\" service on vnet: %s", target.displayName, target.vnet);
    return true;
}

bool HBL_StartService(const char *vnet, uint32_t serviceType) {
    const ApiFrame frame(__func__);
    if (!frame.Loaded()) {
        return false;
    }
    ServiceTarget target;
    if (!ReadTarget(__func__, vnet, serviceType, &target) || !MakesSenseOnVnet(__func__, target)) {
        return false;
    }
    if (HBLServiceStatus(target.number, target.service) == HBL_SERVICE_STATUS_RUNNING) {
        HBLLog(LOG_INFO, __func__, "\"%s\" Service is already running on the vnet: %s", target.displayName,
               target.vnet);
        return true;
    }
    return StartUnderLock(__func__, target);
}
