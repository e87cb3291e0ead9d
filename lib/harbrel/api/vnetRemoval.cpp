// Exported: taking a network out of the configuration.
#include <net/if.h>
#include <time.h>

#include "lib/harbrel/api/bridgeRemoval.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/services.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/dhcp/dhcp.h"
#include "lib/harbrel/files/files.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/harbrel.h"
#include "lib/harbrel/nat/nat.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/harbrel/networks/subnets.h"
#include "lib/harbrel/services/daemons.h"
#include "lib/harbrel/virtualadapter/virtualAdapter.h"

namespace {

// How long an interface may take to follow its daemon: about a second.
constexpr int LEAVING_LOOKS = 200;
constexpr timespec LEAVING_PAUSE = {.tv_sec = 0, .tv_nsec = 5'000'000};

// Phase 1: nothing of the network may run.
struct InspectedService {
    uint32_t service;
    const char *name;       // within a sentence
    const char *startName;  // at the start of one
};

constexpr InspectedService INSPECTED_SERVICES[] = {
    {HBL_SVC_BRIDGE, "bridge", "Bridge"},
    {HBL_SVC_DHCP, "DHCP", "DHCP"},
    {HBL_SVC_NAT, "NAT", "NAT"},
    {HBL_SVC_NETIFUP, "NETIFUP", "NETIFUP"},
};

// False when a status cannot be had, which ends the inspection. *anyRunning: one at least still runs, each of
// which has got its line.
bool InspectServices(FunctionLog log, const char *vnet, uint32_t number, bool *anyRunning) {
    for (const InspectedService &row : INSPECTED_SERVICES) {
        switch (HBLServiceStatus(number, row.service)) {
            case HBL_SERVICE_STATUS_ERROR:
                log(LOG_ERR, "Cannot determine status of %s service on vnet: %s", row.name, vnet);
                return false;
            case HBL_SERVICE_STATUS_RUNNING:
                log(LOG_ERR, "%s service is still running on this vnet Cannot delete config information",
                    row.startName);
                *anyRunning = true;
                break;
            default:
                log(LOG_INFO2, "%s service is not running on vnet: %s", row.startName, vnet);
                break;
        }
    }
    return true;
}

// The end of a netifup daemon takes its interface away a moment after the stop has returned. One that is
// there to stay costs the whole wait. Nothing is logged: the one status asked for afterwards is.
void WaitForLeavingAdapter(const char *name) {
    for (int look = 0; look < LEAVING_LOOKS && if_nametoindex(name) != 0; ++look) {
        nanosleep(&LEAVING_PAUSE, nullptr);
    }
}

bool InspectAdapter(FunctionLog log, const char *vnet, uint32_t number, bool maybeLeaving) {
    char name[HBL_ADAPTER_NAME_SIZE];
    if (!HBLGetVnetVirtAdapterName(number, name, sizeof name)) {
        log(LOG_ERR, "Failed to get the name of the hostonly adapter for vnet: %s", vnet);
        return false;
    }
    if (maybeLeaving) {
        WaitForLeavingAdapter(name);
    }
    switch (HBLAdapterStatus(name)) {
        case HBL_ADAPTER_STATUS_ERROR:
            log(LOG_ERR, "Could not determine status of hostonly adapter for vnet: %s", vnet);
            return false;
        case HBL_ADAPTER_STATUS_ABSENT:
            log(LOG_INFO2, "Hostonly Adapter %s is disabled on vnet: %s", name, vnet);
            return true;
        default:
            log(LOG_ERR, "Hostonly Adapter %s is still enabled on vnet: %s. Cannot delete config information",
                name, vnet);
            return false;
    }
}

// Phase 2: each step is tried, whatever became of the ones before. Turning a feature off comes before
// bringing its file in line, which is what removes the file. True when all are done.
bool RunRemovalSteps(FunctionLog log, const char *vnet, uint32_t number) {
    bool allDone = true;
    // The step's result: the line of its failure counts here, that of its success is the caller's.
    const auto failed = [&allDone](bool done) {
        allDone = allDone && done;
        return !done;
    };
    if (failed(HBLRemoveBridgeMappingsForVnet(number))) {
        log(LOG_ERR, "Falied to remove brige mappings for vnet: %s", vnet);
    } else {
        log(LOG_INFO, "Removed bridge mappings for vnet: %s", vnet);
    }
    if (failed(HBLSetVnetUseDHCP(number, false, true))) {
        log(LOG_ERR, "Removing DHCP failed on vnet: %s, current status unknown", vnet);
    } else {
        log(LOG_INFO, "Removed DHCP on vnet: %s", vnet);
    }
    if (failed(HBLDHCPUpdateFromConfig(number))) {
        log(LOG_ERR, "Failed to remove DHCP system configuraiton file, for vnet: %s", vnet);
    } else {
        log(LOG_INFO, "Removed DHCP system configuraiton file, for vnet: %s", vnet);
    }
    if (failed(HBLSetVnetUseNAT(number, false, true))) {
        log(LOG_ERR, "Removing NAT failed on vnet: %s, current status unknown", vnet);
    } else {
        log(LOG_INFO, "Removed NAT on vnet: %s", vnet);
    }
    if (failed(HBLNATUpdateFromConfig(number))) {
        log(LOG_ERR, "Failed to remove NAT system configuraiton file, for vnet: %s", vnet);
    } else {
        log(LOG_INFO, "Removed NAT system configuration file, for vnet: %s", vnet);
    }
    if (failed(HBLSetVnetUseAdapter(number, false, true))) {
        log(LOG_ERR, "Failed to delete adapter from configuration");
    } else {
        log(LOG_INFO, "Removed Adapter from vnet: %s", vnet);
    }
    if (failed(HBLRemoveVnetSubnet(number))) {
        log(LOG_ERR, "Failed to delete subnet assignment");
    } else {
        log(LOG_INFO, "Removed subnet assignment for vnet: %s", vnet);
    }
    if (failed(HBLRemoveFile(number, HBL_FILE_DEVICE, nullptr))) {
        log(LOG_ERR, "Failed to delete zelan device");
    }
    return allDone;
}

bool RemoveUnderLock(FunctionLog log, const char *vnet, uint32_t number) {
    const ConfigLock lock(log);
    if (!lock.Held()) {
        return false;
    }
    if (!RunRemovalSteps(log, vnet, number)) {
        log(LOG_ERR,
            "Not able to delete some configration information for one/more of the services for vnet: %s",
            vnet);
        return false;
    }
    log(LOG_OK, "Vnet: %s is successfully unconfigured", vnet);
    return true;
}

}  // namespace

bool HBL_DeleteVnetFromDatabase(const char *vnet) {
    const ApiFrame frame(__func__);
    uint32_t number = 0;
    if (!frame.Passed() || !ApiOnlyVnetArgument(frame.log, vnet, &number, "zelan")) {
        return false;
    }
    bool anyRunning = false;
    return InspectServices(frame.log, vnet, number, &anyRunning) &&
           InspectAdapter(frame.log, vnet, number, !anyRunning) && !anyRunning &&
           RemoveUnderLock(frame.log, vnet, number);
}
