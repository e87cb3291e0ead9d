#include "apps/zelan/posix/harbrelCLI/hostPolicy.h"

#include <unistd.h>

#include <cerrno>

#include "apps/zelan/posix/harbrelCLI/network.h"
#include "apps/zelan/posix/harbrelCLI/networkServices.h"
#include "apps/zelan/posix/harbrelCLI/report.h"
#include "apps/zelan/posix/harbrelCLI/session.h"
#include "lib/fatal/memory.h"
#include "lib/file/posix.h"
#include "lib/harbrel/harbrel.h"
#include "lib/misc/owners.h"

namespace {

constexpr const char *HOST_POLICY_PATH = "/etc/orvane/orvane-lumet/host.qorp";
constexpr const char *POLICY_SUBNET_MASK = "255.255.255.0";
constexpr uint32_t POLICY_VNET = 8;

// Strips the network of all that a policy sets; it does not go back to the old values.
void RollBack(const char *name) {
    Report(REPORT_ERROR,
           "Failed to configure all host policy network settings, cleanup up settigns on network %s ...",
           name);
    const bool adapter = HBL_SetVnetUseAdapter(name, false, true);
    const bool nat = HBL_SetVnetUseNAT(name, false, true);
    const bool dhcp = HBL_SetVnetUseDHCP(name, false, true);
    const bool mask = HBL_SetVnetSubnetMask(name, nullptr);
    const bool subnet = HBL_SetVnetSubnetAddr(name, nullptr);
    const auto word = [](bool cleaned) { return cleaned ? "Cleaned-up" : "Failed to cleanup"; };
    Report(REPORT_ERROR, "%s subnet, %s netmask, %s dhcp, %s nat, %s hostonly adapter", word(subnet),
           word(mask), word(dhcp), word(nat), word(adapter));
}

bool ConfigureNetwork(const char *name, const char *subnet, bool useDHCP, const HBL_VnetFeatures &snapshot) {
    if (!HBL_SetVnetSubnetAddr(name, subnet)) {
        Report(REPORT_ERROR, "Failed to set the subnet address: %s for network %s", subnet, name);
        return false;
    }
    if (!HBL_SetVnetSubnetMask(name, POLICY_SUBNET_MASK)) {
        Report(REPORT_ERROR, "Failed to set the subnet mask: %s for network %s", POLICY_SUBNET_MASK, name);
        return false;
    }
    Report(REPORT_VERBOSE, "Subnet configured for network %s", name);
    if (!HBL_SetVnetUseDHCP(name, useDHCP, true)) {
        Report(REPORT_ERROR, "Failed to %s DHCP for network %s", useDHCP ? "install" : "uninstall", name);
        return false;
    }
    return UpdateNetworkConfigFiles(name, snapshot);
}

bool RestartByTheSnapshot(const char *name, bool useDHCP, const HBL_VnetFeatures &snapshot) {
    const HBL_FeatureGroup &ran = snapshot.runtime;
    bool allStarted = true;
    if (ran.hostOnlyAdapter == 1 && !HBL_EnableNetworkAdapter(name)) {
        Report(REPORT_ERROR, "Failed to enable hostonly virtual adapter on %s", name);
        allStarted = false;
    }
    if (ran.nat == 1 && !HBL_StartService(name, HBL_SERVICE_NAT)) {
        Report(REPORT_ERROR, "Failed to start NAT service on network %s", name);
        allStarted = false;
    }
    if (useDHCP && (ran.dhcp == 1 || ran.nat == 1 || ran.hostOnlyAdapter == 1) &&
        !HBL_StartService(name, HBL_SERVICE_DHCP)) {
        Report(REPORT_ERROR, "Failed to start DHCP service on network %s", name);
        allStarted = false;
    }
    return allStarted;
}

// What became of the policy on the NAT network; the reason for a failure is reported.
enum class PolicyOutcome { NotApplied, RestartFailed, Applied };

// Reconfigures the NAT network for the policy and restarts what ran on it.
PolicyOutcome ApplyToNetwork(const char *subnet, bool useDHCP) {
    const MallocString name = NetworkName(POLICY_VNET);
    HBL_VnetFeatures snapshot = FeatureQuery(POLICY_VNET);
    if (!HBL_GetVnetFeatures(&snapshot)) {
        Report(REPORT_ERROR, "Failed to determine features for network %s", name.get());
        return PolicyOutcome::NotApplied;
    }
    snapshot.runtime.bridge = 0;
    if (!StopNetworkServices(name.get(), snapshot)) {
        Report(REPORT_ERROR, "Failed to stop services for network %s", name.get());
        return PolicyOutcome::NotApplied;
    }
    if (!ConfigureNetwork(name.get(), subnet, useDHCP, snapshot)) {
        RollBack(name.get());
        return PolicyOutcome::NotApplied;
    }
    Report(REPORT_NORMAL, "Configured host policy network settings on network %s, restarting services",
           name.get());
    return RestartByTheSnapshot(name.get(), useDHCP, snapshot) ? PolicyOutcome::Applied
                                                               : PolicyOutcome::RestartFailed;
}

bool StopDetection() {
    if (HBL_StopService(nullptr, HBL_SERVICE_NETDETECT)) {
        return true;
    }
    Report(REPORT_ERROR, "Failed to stop Netdetect service");
    return false;
}

bool StartDetection() {
    if (HBL_StartService(nullptr, HBL_SERVICE_NETDETECT)) {
        return true;
    }
    Report(REPORT_ERROR, "Failed to start Netdetect service");
    return false;
}

// It is started also after a stop that failed.
bool RestartDetection() {
    const bool stopped = StopDetection();
    return StartDetection() && stopped;
}

// A file below a path that is no folder does not exist either.
bool DeletePolicyFile(const char *path) {
    return Posix_Unlink(path) == 0 || errno == ENOENT || errno == ENOTDIR;
}

bool WithdrawPolicyFile(const char *path) {
    Report(REPORT_VERBOSE, "Host policy file location: %s, and %s", path,
           Posix_Access(path, F_OK) == 0 ? "exists" : "does not exist");
    if (!StopDetection()) {
        return false;
    }
    if (!DeletePolicyFile(path)) {
        Report(REPORT_ERROR, "Failed to delete host policy file: %s", path);
        return false;
    }
    Report(REPORT_NORMAL, "Deleted host policy file: %s", path);
    return StartDetection();
}

}  // namespace

char *PolicyGetHostPolicyPath() {
    return Mem_Strdup(HOST_POLICY_PATH);
}

bool InstallHostPolicy(const char *subnet, bool useDHCP) {
    if (!SetLibraryLoaded(true)) {
        return false;
    }
    PolicyOutcome outcome = PolicyOutcome::Applied;
    if (subnet == nullptr) {
        Report(REPORT_VERBOSE, "Skipping NAT policy installation");
    } else {
        outcome = ApplyToNetwork(subnet, useDHCP);
    }
    const bool detects = outcome != PolicyOutcome::NotApplied && RestartDetection();
    SetLibraryLoaded(false);
    if (outcome != PolicyOutcome::Applied || !detects) {
        return false;
    }
    Report(REPORT_NORMAL, "Restarting services completed");
    return true;
}

bool UninstallHostPolicy() {
    if (!SetLibraryLoaded(true)) {
        return false;
    }
    const MallocString path(PolicyGetHostPolicyPath());
    const bool withdrawn = WithdrawPolicyFile(path.get());
    SetLibraryLoaded(false);
    if (withdrawn) {
        Report(REPORT_NORMAL, "Uninstalled host policy network settings");
    }
    return withdrawn;
}
