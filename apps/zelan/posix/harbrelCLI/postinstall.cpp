#include "apps/zelan/posix/harbrelCLI/postinstall.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <span>

#include "apps/zelan/posix/harbrelCLI/network.h"
#include "apps/zelan/posix/harbrelCLI/report.h"
#include "apps/zelan/posix/harbrelCLI/session.h"
#include "apps/zelan/posix/harbrelCLI/settingsBackup.h"
#include "apps/zelan/posix/harbrelCLI/sweep.h"
#include "lib/err/errText.h"
#include "lib/file/posix.h"
#include "lib/harbrel/harbrel.h"
#include "lib/misc/owners.h"

namespace {

constexpr const char *FRESH_INSTALL = "0";
constexpr const char *NETWORKING_DATABASE = "/etc/orvane/networking";

void StopAllServices() {
    SweepAllNetworks(SWEEP_STOP);
    Report(REPORT_VERBOSE, "Making sure all services are stopped");
}

bool IsRegularFile(const char *path) {
    struct stat status;
    return Posix_Stat(path, &status) == 0 && S_ISREG(status.st_mode);
}

bool IsDatabase(const char *path) {
    struct stat given;
    struct stat database;
    return Posix_Stat(path, &given) == 0 && Posix_Stat(NETWORKING_DATABASE, &database) == 0 &&
           given.st_dev == database.st_dev && given.st_ino == database.st_ino;
}

// Stops all services and removes all networks and the database; the library may be loaded or not.
bool CleanupExistingConfig() {
    if (!HBL_CheckNetworkingDB()) {
        Report(REPORT_VERBOSE, "Configuration database not found");
        return true;
    }
    if (SetLibraryLoaded(true)) {
        StopAllServices();
        for (uint32_t vnet = 0; vnet < HBL_GetNumVnets(); vnet++) {
            HBL_DeleteVnetFromDatabase(NetworkName(vnet).get());
        }
        SetLibraryLoaded(false);
    }
    if (!HBL_DeleteNetworkingDB()) {
        Report(REPORT_VERBOSE, "Failed to delete configuration database");
        return false;
    }
    Report(REPORT_VERBOSE, "Cleaned up existing configuration");
    return true;
}

// Imports the file and regenerates the files of each network; the library is not loaded. `migrating` picks
// the words, and whether a failure to propagate clears the configuration.
bool RestoreNetworkSettings(const char *path, bool migrating) {
    if (!HBL_ImportDatabaseFromFile(path)) {
        Report(REPORT_ERROR, "Failed to import configuration information from backup file %s", path);
        return false;
    }
    if (!SetLibraryLoaded(true)) {
        return false;
    }
    const bool propagated = SweepAllNetworks(SWEEP_PROPAGATE);
    Report(REPORT_VERBOSE, "%s config information for %s settings",
           propagated ? "Propagated" : "Failed to propagate", migrating ? "migrated" : "restored");
    if (propagated) {
        Report(REPORT_NORMAL, "Restored network settings");
    } else {
        Report(REPORT_ERROR, "Failed to restore network settings from backup file \"%s\"", path);
        if (migrating) {
            Report(REPORT_VERBOSE, "Cleaning up configuration database on error");
            CleanupExistingConfig();
        }
    }
    SetLibraryLoaded(false);
    return propagated;
}

// One call that configures a default network, and what to say when it fails.
struct ConfigureStep {
    bool (*call)(const char *name);
    const char *what;  // of the network's name
};

bool AssignSubnet(const char *name) {
    return HBL_AssignSubnetAddressToVnet(name, true);
}

bool UseAdapter(const char *name) {
    return HBL_SetVnetUseAdapter(name, true, false);
}

bool UseDHCP(const char *name) {
    return HBL_SetVnetUseDHCP(name, true, false);
}

bool UseNAT(const char *name) {
    return HBL_SetVnetUseNAT(name, true, false);
}

bool UseDefaultBridge(const char *) {
    HBL_NetworkID network = {};
    network.version = 1;
    network.type = HBL_NETWORK_TYPE_VNET;
    network.vnet = 0;
    return HBL_SetBridgeDefaultNetwork(&network);
}

constexpr ConfigureStep BRIDGED_STEPS[] = {
    {UseDefaultBridge, "create default auto bridged network"},
};

constexpr ConfigureStep HOSTONLY_STEPS[] = {
    {AssignSubnet, "assign subnet address to hostonly network:"},
    {UseAdapter, "add hostonly virtual adapter to hostonly network"},
    {UseDHCP, "add DHCP to hostonly network"},
};

constexpr ConfigureStep NAT_STEPS[] = {
    {AssignSubnet, "assign subnet address to NAT nework"},
    {UseAdapter, "add hostonly virtual adapter to NAT network"},
    {UseDHCP, "add DHCP to NAT network"},
    {UseNAT, "add NAT to NAT network"},
};

struct DefaultNetwork {
    uint32_t vnet;
    const char *kind;
    const char *suffix;  // behind the name, while it is configured
    std::span<const ConfigureStep> steps;
};

constexpr char PROBING[] = ", probing for unused subnet ...";
constexpr DefaultNetwork DEFAULT_NETWORKS[] = {
    {0, "Bridged", "", BRIDGED_STEPS},
    {1, "hostonly", PROBING, HOSTONLY_STEPS},
    {8, "NAT", PROBING, NAT_STEPS},
};

bool ConfigureNetwork(const DefaultNetwork &network) {
    const MallocString name = NetworkName(network.vnet);
    Report(REPORT_NORMAL, "Configuring %s network %s%s", network.kind, name.get(), network.suffix);
    for (const ConfigureStep &step : network.steps) {
        if (!step.call(name.get())) {
            Report(REPORT_ERROR, "Failed to %s %s", step.what, name.get());
            return false;
        }
    }
    return true;
}

bool PropagateDefaults() {
    const bool propagated = SweepAllNetworks(SWEEP_PROPAGATE);
    Report(REPORT_VERBOSE, "%s config information for default configuration",
           propagated ? "Propagated" : "Failed to propagate");
    if (propagated) {
        Report(REPORT_NORMAL, "Configured default networks - Bridged, Hostonly, NAT");
    } else {
        Report(REPORT_ERROR, "Failed to configure default network settings");
    }
    return propagated;
}

bool ConfigureNewDatabase() {
    return SetLibraryLoaded(true) && std::ranges::all_of(DEFAULT_NETWORKS, ConfigureNetwork) &&
           PropagateDefaults();
}

// Creates a new database with the default networks.
bool ConfigureDefaultNetworks() {
    SetLibraryLoaded(false);
    if (!HBL_CreateNetworkingDB(true)) {
        Report(REPORT_ERROR, "Failed to create new networking database");
        return false;
    }
    const bool configured = ConfigureNewDatabase();
    if (!configured) {
        Report(REPORT_VERBOSE, "Cleaning up existing database on error");
        CleanupExistingConfig();
    }
    SetLibraryLoaded(false);
    return configured;
}

bool UpgradeExistingSettings() {
    const SettingsBackup backup;
    if (!backup.Reserved()) {
        Report(REPORT_VERBOSE, "Failed to create temporary backup file, error: %s", Err_LastErrnoText());
        Report(REPORT_ERROR, "Failed to create temporary file to backup existing network settings");
        return false;
    }
    if (HBL_CheckNetworkingDB() && SetLibraryLoaded(true)) {
        StopAllServices();
    }
    if (!HBL_ExportDatabaseToFile(backup.Path())) {
        Report(REPORT_ERROR, "Failed to export network settings to a backup file");
        SetLibraryLoaded(false);
        return false;
    }
    Report(REPORT_NORMAL, "Backed up existing network settings to backup file \"%s\"", backup.Path());
    SetLibraryLoaded(false);
    return RestoreNetworkSettings(backup.Path(), false);
}

}  // namespace

bool PostInstall(const char *oldVersion) {
    if (strcmp(oldVersion, FRESH_INSTALL) == 0) {
        CleanupExistingConfig();
        return ConfigureDefaultNetworks();
    }
    if (!HBL_CheckNetworkingDB()) {
        Report(REPORT_NORMAL, "Network settings database seems to be invalid,configuring default settings");
        return ConfigureDefaultNetworks();
    }
    return UpgradeExistingSettings();
}

bool MigrateNetworkSettings(const char *path) {
    if (!IsRegularFile(path)) {
        Report(REPORT_ERROR, "Settings file \"%s\" does not exist", path);
        return false;
    }
    if (IsDatabase(path)) {  // the clean-up would delete what is to be imported
        Report(REPORT_ERROR, "Settings file \"%s\" is the networking database itself", path);
        return false;
    }
    CleanupExistingConfig();
    return RestoreNetworkSettings(path, true);
}
