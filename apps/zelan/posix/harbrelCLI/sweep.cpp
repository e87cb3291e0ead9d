#include "apps/zelan/posix/harbrelCLI/sweep.h"

#include <functional>

#include "apps/zelan/posix/harbrelCLI/leftovers.h"
#include "apps/zelan/posix/harbrelCLI/network.h"
#include "apps/zelan/posix/harbrelCLI/networkServices.h"
#include "apps/zelan/posix/harbrelCLI/networkStarter.h"
#include "apps/zelan/posix/harbrelCLI/report.h"
#include "lib/fatal/panic.h"

namespace {

const char *WordIfSet(uint8_t flag, const char *word) {
    return flag == 1 ? word : "";
}

bool AnySet(const HBL_FeatureGroup &group) {
    return group.dhcp == 1 || group.nat == 1 || group.bridge == 1 || group.hostOnlyAdapter == 1;
}

void ReportFeatures(const char *name, const HBL_VnetFeatures &features) {
    const HBL_FeatureGroup &config = features.config;
    const HBL_FeatureGroup &runtime = features.runtime;
    if (features.subnet == 1 || AnySet(config)) {
        Report(REPORT_VERBOSE, "Features configured on %s are: %s %s %s %s %s", name,
               WordIfSet(features.subnet, "subnet"), WordIfSet(config.dhcp, "DHCP"),
               WordIfSet(config.nat, "NAT"), WordIfSet(config.bridge, "Bridge"),
               WordIfSet(config.hostOnlyAdapter, "HostOnlyAdapter"));
    }
    if (AnySet(runtime)) {
        Report(REPORT_VERBOSE, "Runtime features on %s are: %s %s %s %s", name,
               WordIfSet(runtime.dhcp, "DHCP"), WordIfSet(runtime.nat, "NAT"),
               WordIfSet(runtime.bridge, "Bridge"), WordIfSet(runtime.hostOnlyAdapter, "HostOnlyAdapter"));
    }
}

// What is done to one network: its name and features; false for a failure.
using NetworkVisit = std::function<bool(const char *, const HBL_VnetFeatures &)>;

// True when each network could be asked for its features and each visit went well.
bool VisitNetworks(const NetworkVisit &visit) {
    bool allWell = true;
    const uint32_t networks = HBL_GetNumVnets();
    for (uint32_t vnet = 0; vnet < networks; vnet++) {
        const MallocString name = NetworkName(vnet);
        HBL_VnetFeatures features = FeatureQuery(vnet);
        if (!HBL_GetVnetFeatures(&features)) {
            Report(REPORT_ERROR, "Failed to determine features for network %s", name.get());
            allWell = false;
            continue;
        }
        if (IsVerbose()) {
            ReportFeatures(name.get(), features);
        }
        allWell &= visit(name.get(), features);
    }
    return allWell;
}

bool StartDetection() {
    if (HBL_StartService(nullptr, HBL_SERVICE_NETDETECT)) {
        Report(REPORT_NORMAL, "Started Network detection service");
        return true;
    }
    Report(REPORT_ERROR, "Failed to start Network detection service");
    return false;
}

bool StopDetection() {
    if (HBL_GetServiceStatus(nullptr, HBL_SERVICE_NETDETECT) == HBL_SERVICE_STATUS_STOPPED) {
        return true;
    }
    if (HBL_StopService(nullptr, HBL_SERVICE_NETDETECT)) {
        Report(REPORT_NORMAL, "Stopped Network detection service");
        return true;
    }
    Report(REPORT_ERROR, "Failed to stop Network detection service");
    return false;
}

void ReportClosing(bool allWell, const char *verb, const char *participle) {
    if (allWell) {
        Report(REPORT_NORMAL, "%s all configured services on all networks", participle);
    } else {
        Report(REPORT_ERROR, "Failed to %s some/all services", verb);
    }
}

bool StartAll() {
    NetworkStarter starter;
    bool allStarted = VisitNetworks([&starter](const char *name, const HBL_VnetFeatures &features) {
        return starter.Begin(name, features);
    });
    allStarted &= starter.FinishAsVerdictsComeIn();
    allStarted &= StartDetection();
    ReportClosing(allStarted, "start", "Started");
    return allStarted;
}

bool StopAll() {
    bool allStopped = VisitNetworks(StopNetworkServices);
    allStopped &= StopDetection();
    ReportClosing(allStopped, "stop", "Stopped");
    RemoveLeftovers();
    return allStopped;
}

// The detection daemon is reported, but does not count towards the result.
bool ReportStatusOfAll() {
    const bool allRun = VisitNetworks(ReportNetworkStatus);
    const bool detects = HBL_GetServiceStatus(nullptr, HBL_SERVICE_NETDETECT) == HBL_SERVICE_STATUS_RUNNING;
    Report(REPORT_NORMAL, "Network detection service is %srunning", detects ? "" : "not ");
    if (allRun) {
        Report(REPORT_NORMAL, "All the services configured on all the networks are running");
    } else {
        Report(REPORT_ERROR, "Some/All of the configured services are not running");
    }
    return allRun;
}

}  // namespace

bool SweepAllNetworks(SweepMode mode) {
    switch (mode) {
        case SWEEP_PROPAGATE:
            return VisitNetworks(UpdateNetworkConfigFiles);
        case SWEEP_START:
            return StartAll();
        case SWEEP_STOP:
            return StopAll();
        case SWEEP_STATUS:
            return ReportStatusOfAll();
    }
    PanicNotReached();
}
