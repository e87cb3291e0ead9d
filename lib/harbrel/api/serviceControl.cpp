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

bool ReadTarget(FunctionLog log, const char *vnet, uint32_t serviceType, ServiceTarget *target) {
    log(LOG_ARGS, "Arguments - v: %p,%s, sT: %u", static_cast<const void *>(vnet), TextOrNull(vnet),
        serviceType);
    const uint32_t service = HBLMapServiceType(serviceType);
    if (service == HBL_SVC_NONE || (vnet == nullptr && service != HBL_SVC_NETDETECT)) {
        log(LOG_ERR, "Invalid argument - vnet: %p, serviceType: %u", static_cast<const void *>(vnet),
            serviceType);
        return false;
    }
    target->vnet = vnet != nullptr ? vnet : NETDETECT_VNET;
    target->service = service;
    target->displayName = HBLServiceName(service);
    return ApiVnetNumber(log, target->vnet, &target->number);
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

bool RequiredFilesExist(FunctionLog log, const ServiceTarget &target) {
    for (const RequiredFile &row : REQUIRED_FILES) {
        if (row.service == target.service && !HBLFileExists(target.number, row.fileType, nullptr)) {
            log(LOG_ERR, "%s", row.missing);
            return false;
        }
    }
    return true;
}

bool MakesSenseOnVnet(FunctionLog log, const ServiceTarget &target) {
    if (target.service == HBL_SVC_NETDETECT) {
        return true;
    }
    if (!HBLVnetIsOptionConfigured(target.number, HBLServiceToVnetOption(target.service))) {
        log(LOG_ERR, "\"%s\" service is not configured for this vnet", target.displayName);
        return false;
    }
    if (target.service != HBL_SVC_BRIDGE && !HBLVnetIsOptionConfigured(target.number, HBL_OPTION_SUBNET)) {
        log(LOG_ERR, "Subnet is not assigned, so service \"%s\" is invalid", target.displayName);
        return false;
    }
    return RequiredFilesExist(log, target);
}

bool StartUnderLock(FunctionLog log, const ServiceTarget &target) {
    const ConfigLock lock(log);
    if (!lock.Held()) {
        return false;
    }
    if (!HBLCreateFile(target.number, HBL_FILE_DEVICE, nullptr)) {
        log(LOG_ERR, "Failed to create required vnet device before starting \"%s\" service",
            target.displayName);
        return false;
    }
    log(LOG_INFO2, "Success in creating zelan device before starting \"%s\" service for vnet: %s",
        target.displayName, target.vnet);
    if (!HBLServiceStart(target.number, target.service)) {
        log(LOG_ERR, "Failure in starting \"%s\" service for vnet: %s", target.displayName, target.vnet);
        return false;
    }
    log(LOG_OK, "Started \"%s\" service for vnet: %s", target.displayName, target.vnet);
    return true;
}

}  // namespace

uint32_t HBL_GetServiceStatus(const char *vnet, uint32_t serviceType) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return 0;
    }
    ServiceTarget target;
    if (!ReadTarget(frame.log, vnet, serviceType, &target)) {
        return HBL_SERVICE_STATUS_ERROR;
    }
    const uint32_t status = HBLServiceStatus(target.number, target.service);
    if (status == HBL_SERVICE_STATUS_ERROR) {
        frame.log(LOG_ERR, "Failure in determining status of \"%s\" service on vnet: %s", target.displayName,
                  target.vnet);
    } else {
        frame.log(LOG_OK, "\"%s\" service is currently %s on vnet: %s", target.displayName,
                  status == HBL_SERVICE_STATUS_STOPPED ? "stopped" : "running", target.vnet);
    }
    return status;
}

bool HBL_StopService(const char *vnet, uint32_t serviceType) {
    const ApiFrame frame(__func__, ApiFrame::Kind::WhileLoadedWithoutExit);
    if (!frame.Passed()) {
        return false;
    }
    ServiceTarget target;
    if (!ReadTarget(frame.log, vnet, serviceType, &target)) {
        return false;
    }
    const ConfigLock lock(frame.log);
    if (!lock.Held()) {
        return false;
    }
    if (!HBLServiceStop(target.number, target.service)) {
        frame.log(LOG_ERR, "Failure in stopping \"%s\" service on vnet: %s", target.displayName, target.vnet);
        return false;
    }
    frame.log(LOG_OK, "Stopped \"%s\" service on vnet: %s", target.displayName, target.vnet);
    return true;
}

bool HBL_StartService(const char *vnet, uint32_t serviceType) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    ServiceTarget target;
    if (!ReadTarget(frame.log, vnet, serviceType, &target) || !MakesSenseOnVnet(frame.log, target)) {
        return false;
    }
    if (HBLServiceStatus(target.number, target.service) == HBL_SERVICE_STATUS_RUNNING) {
        frame.log(LOG_INFO, "\"%s\" Service is already running on the vnet: %s", target.displayName,
                  target.vnet);
        return true;
    }
    return StartUnderLock(frame.log, target);
}
