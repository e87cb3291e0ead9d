#include "apps/zelan/posix/harbrelCLI/networkServices.h"

#include "apps/zelan/posix/harbrelCLI/report.h"

namespace {

constexpr const NetworkService *SERVICES[] = {&BRIDGE_SERVICE, &DHCP_SERVICE, &NAT_SERVICE};

bool StopService(const char *network, const NetworkService &service) {
    const bool stopped = HBL_StopService(network, service.serviceType);
    if (stopped) {
        Report(REPORT_NORMAL, "Stopped %s on %s", service.stoppedName, network);
    } else {
        Report(REPORT_ERROR, "Failed to stop %s on %s", service.stoppedName, network);
    }
    return stopped;
}

bool StopAdapter(const char *network) {
    const bool disabled = HBL_DisableNetworkAdapter(network);
    if (disabled) {
        Report(REPORT_NORMAL, "Disabled hostonly virtual adapter on %s", network);
    } else {
        Report(REPORT_ERROR, "Failed to disable hostonly virtual adapter %s", network);
    }
    return disabled;
}

}  // namespace

bool StartNetworkService(const char *network, const NetworkService &service) {
    const bool started = HBL_StartService(network, service.serviceType);
    if (started) {
        Report(REPORT_NORMAL, "Started %s on %s", service.name, network);
    } else {
        Report(REPORT_ERROR, "Failed to start %s on %s", service.stoppedName, network);
    }
    return started;
}

bool StartNetworkAdapter(const char *network) {
    const bool enabled = HBL_EnableNetworkAdapter(network);
    if (enabled) {
        Report(REPORT_NORMAL, "Enabled hostonly virtual adapter on %s", network);
    } else {
        Report(REPORT_ERROR, "Failed to enable hostonly virtual adapter on %s", network);
    }
    return enabled;
}

bool StopNetworkServices(const char *network, const HBL_VnetFeatures &features) {
    bool allStopped = true;
    for (const NetworkService *service : SERVICES) {
        if (features.runtime.*service->flag == 1) {
            allStopped &= StopService(network, *service);
        }
    }
    if (features.runtime.hostOnlyAdapter == 1 ||
        HBL_GetServiceStatus(network, HBL_SERVICE_NETIFUP) == HBL_SERVICE_STATUS_RUNNING) {
        allStopped &= StopAdapter(network);
    }
    if (!HBL_DeleteZelanDevice(network)) {
        Report(REPORT_ERROR, "Failed to delete device for %s", network);
        allStopped = false;
    }
    return allStopped;
}

bool ReportNetworkStatus(const char *network, const HBL_VnetFeatures &features) {
    bool allRun = true;
    for (const NetworkService *service : SERVICES) {
        const bool running = features.runtime.*service->flag == 1;
        if (running || features.config.*service->flag == 1) {
            Report(REPORT_NORMAL, "%s on %s is %srunning", service->name, network, running ? "" : "not ");
            allRun &= running;
        }
    }
    const bool enabled = features.runtime.hostOnlyAdapter == 1;
    if (enabled || features.config.hostOnlyAdapter == 1) {
        Report(REPORT_NORMAL, "Hostonly virtual adapter on %s is %s", network,
               enabled ? "enabled" : "disabled");
        allRun &= enabled;
    }
    return allRun;
}

bool UpdateNetworkConfigFiles(const char *network, const HBL_VnetFeatures &features) {
    const bool dhcpUpdated = HBL_UpdateDHCPFromConfig(network);
    const bool natUpdated = HBL_UpdateNATFromConfig(network);
    if (!dhcpUpdated) {
        Report(REPORT_ERROR, "Failed to %s DHCP configuration file for network %s",
               features.config.dhcp == 1 ? "create" : "remove", network);
    }
    if (!natUpdated) {
        Report(REPORT_ERROR, "Failed to %s NAT configuration file for network %s",
               features.config.nat == 1 ? "create" : "remove", network);
    }
    return dhcpUpdated && natUpdated;
}
