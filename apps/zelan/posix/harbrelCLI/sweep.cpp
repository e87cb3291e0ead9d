#include "apps/zelan/posix/harbrelCLI/sweep.h"

#include "apps/zelan/posix/harbrelCLI/names.h"
#include "apps/zelan/posix/harbrelCLI/report.h"
#include "apps/zelan/posix/harbrelCLI/subnetChecks.h"

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

struct StopRow {
    uint8_t HBL_FeatureGroup::*flag;
    uint32_t serviceType;
    const char *stopped;
    const char *failed;
};

constexpr StopRow STOP_ROWS[] = {
    {&HBL_FeatureGroup::bridge, HBL_SERVICE_BRIDGE, "Stopped Bridged networking on %s",
     "Failed to stop Bridged networking on %s"},
    {&HBL_FeatureGroup::dhcp, HBL_SERVICE_DHCP, "Stopped DHCP service on %s",
     "Failed to stop DHCP service on %s"},
    {&HBL_FeatureGroup::nat, HBL_SERVICE_NAT, "Stopped NAT service on %s",
     "Failed to stop NAT service on %s"},
};

struct StatusRow {
    uint8_t HBL_FeatureGroup::*flag;
    const char *format;
    const char *active;
    const char *inactive;
};

constexpr StatusRow STATUS_ROWS[] = {
    {&HBL_FeatureGroup::bridge, "Bridge networking on %s is %srunning", "", "not "},
    {&HBL_FeatureGroup::dhcp, "DHCP service on %s is %srunning", "", "not "},
    {&HBL_FeatureGroup::nat, "NAT service on %s is %srunning", "", "not "},
    {&HBL_FeatureGroup::hostOnlyAdapter, "Hostonly virtual adapter on %s is %s", "enabled", "disabled"},
};

int ReportNetworkStatus(const char *name, const HBL_VnetFeatures &features) {
    int result = 0;
    for (const StatusRow &row : STATUS_ROWS) {
        const bool configured = features.config.*row.flag == 1;
        const bool running = features.runtime.*row.flag == 1;
        if (!configured && !running) {
            continue;
        }
        Report(REPORT_NORMAL, row.format, name, running ? row.active : row.inactive);
        if (!running) {
            result = 1;
        }
    }
    return result;
}

int SweepNetwork(SweepMode mode, const char *name, const HBL_VnetFeatures &features, SubnetChecks *checks) {
    switch (mode) {
        case SWEEP_PROPAGATE:
            return UpdateNetworkConfigFiles(name, &features);
        case SWEEP_START:
            return checks->StartNetwork(name, features);
        case SWEEP_STOP:
            return StopNetworkServices(name, &features);
        case SWEEP_STATUS:
            break;
    }
    return ReportNetworkStatus(name, features);
}

int StartDetection() {
    if (HBL_StartService(nullptr, HBL_SERVICE_NETDETECT)) {
        Report(REPORT_NORMAL, "Started Network detection service");
        return 0;
    }
    Report(REPORT_ERROR, "Failed to start Network detection service");
    return 1;
}

int StopDetection() {
    if (HBL_GetServiceStatus(nullptr, HBL_SERVICE_NETDETECT) == HBL_SERVICE_STATUS_STOPPED) {
        return 0;
    }
    if (HBL_StopService(nullptr, HBL_SERVICE_NETDETECT)) {
        Report(REPORT_NORMAL, "Stopped Network detection service");
        return 0;
    }
    Report(REPORT_ERROR, "Failed to stop Network detection service");
    return 1;
}

void ReportClosing(int result, const char *verb, const char *participle) {
    if (result != 0) {
        Report(REPORT_ERROR, "Failed to %s some/all services", verb);
    } else {
        Report(REPORT_NORMAL, "%s all configured services on all networks", participle);
    }
}

int CloseStart(int result, SubnetChecks *checks) {
    result |= checks->StartAsVerdictsComeIn();
    result |= StartDetection();
    ReportClosing(result, "start", "Started");
    return result;
}

int CloseStop(int result) {
    result |= StopDetection();
    ReportClosing(result, "stop", "Stopped");
    return result;
}

// The detection daemon is reported, but does not count towards the result.
int CloseStatus(int result) {
    const bool running = HBL_GetServiceStatus(nullptr, HBL_SERVICE_NETDETECT) == HBL_SERVICE_STATUS_RUNNING;
    Report(REPORT_NORMAL, "Network detection service is %srunning", running ? "" : "not ");
    if (result != 0) {
        Report(REPORT_ERROR, "Some/All of the configured services are not running");
    } else {
        Report(REPORT_NORMAL, "All the services configured on all the networks are running");
    }
    return result;
}

}  // namespace

int UpdateNetworkConfigFiles(const char *name, const HBL_VnetFeatures *features) {
    const bool dhcpUpdated = HBL_UpdateDHCPFromConfig(name);
    const bool natUpdated = HBL_UpdateNATFromConfig(name);
    if (!dhcpUpdated) {
        Report(REPORT_ERROR, "Failed to %s DHCP configuration file for network %s",
               features->config.dhcp == 1 ? "create" : "remove", name);
    }
    if (!natUpdated) {
        Report(REPORT_ERROR, "Failed to %s NAT configuration file for network %s",
               features->config.nat == 1 ? "create" : "remove", name);
    }
    return dhcpUpdated && natUpdated ? 0 : 1;
}

int StopNetworkServices(const char *name, const HBL_VnetFeatures *features) {
    int result = 0;
    for (const StopRow &row : STOP_ROWS) {
        if (features->runtime.*row.flag != 1) {
            continue;
        }
        if (HBL_StopService(name, row.serviceType)) {
            Report(REPORT_NORMAL, row.stopped, name);
        } else {
            Report(REPORT_ERROR, row.failed, name);
            result = 1;
        }
    }
    if (features->runtime.hostOnlyAdapter == 1 ||
        HBL_GetServiceStatus(name, HBL_SERVICE_NETIFUP) == HBL_SERVICE_STATUS_RUNNING) {
        if (HBL_DisableNetworkAdapter(name)) {
            Report(REPORT_NORMAL, "Disabled hostonly virtual adapter on %s", name);
        } else {
            Report(REPORT_ERROR, "Failed to disable hostonly virtual adapter %s", name);
            result = 1;
        }
    }
    if (!HBL_DeleteZelanDevice(name)) {
        Report(REPORT_ERROR, "Failed to delete device for %s", name);
        result = 1;
    }
    return result;
}

int SweepAllNetworks(SweepMode mode) {
    int result = 0;
    SubnetChecks checks;
    const uint32_t networks = HBL_GetNumVnets();
    for (uint32_t vnet = 0; vnet < networks; vnet++) {
        const MallocString name = NetworkName(vnet);
        HBL_VnetFeatures features = FeatureQuery(vnet);
        if (!HBL_GetVnetFeatures(&features)) {
            Report(REPORT_ERROR, "Failed to determine features for network %s", name.get());
            result = 1;
            continue;
        }
        if (IsVerbose()) {
            ReportFeatures(name.get(), features);
        }
        result |= SweepNetwork(mode, name.get(), features, &checks);
    }
    switch (mode) {
        case SWEEP_START:
            return CloseStart(result, &checks);
        case SWEEP_STOP:
            return CloseStop(result);
        case SWEEP_STATUS:
            return CloseStatus(result);
        case SWEEP_PROPAGATE:
            break;
    }
    return result;
}
