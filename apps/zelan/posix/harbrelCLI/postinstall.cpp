#include "apps/zelan/posix/harbrelCLI/postinstall.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <span>

#include "apps/zelan/posix/harbrelCLI/names.h"
#include "apps/zelan/posix/harbrelCLI/report.h"
#include "apps/zelan/posix/harbrelCLI/session.h"
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

// The existing settings in a file of their own under /tmp, which goes with the object.
class SettingsBackup {
  public:
    // Reserves the name.
    SettingsBackup() : descriptor_(mkstemp(path_)) {
        if (descriptor_) {
            Posix_Unlink(path_);
        }
    }
    ~SettingsBackup() {
        if (descriptor_) {
            descriptor_.reset();
            Posix_Unlink(path_);
        }
    }
    SettingsBackup(const SettingsBackup &) = delete;
    SettingsBackup &operator=(const SettingsBackup &) = delete;

    bool Reserved() const { return static_cast<bool>(descriptor_); }
    // Everyone may have put a file or a link there since, and the export writes to what it finds.
    bool MakeOwn() const {
        constexpr int EXCLUSIVE = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
        return static_cast<bool>(FileDescriptor(Posix_Open(path_, EXCLUSIVE, S_IRUSR | S_IWUSR)));
    }
    const char *Path() const { return path_; }

  private:
    char path_[sizeof "/tmp/orvane.XXXXXX"] = "/tmp/orvane.XXXXXX";
    FileDescriptor descriptor_;
};

int UpgradeExistingSettings() {
    const SettingsBackup backup;
    if (!backup.Reserved()) {
        Report(REPORT_VERBOSE, "Failed to create temporary backup file, error: %s", Err_LastErrnoText());
        Report(REPORT_ERROR, "Failed to create temporary file to backup existing network settings");
        return 1;
    }
    if (HBL_CheckNetworkingDB() && SetLibraryLoaded(true)) {
        StopAllServices();
    }
    if (!backup.MakeOwn() || !HBL_ExportDatabaseToFile(backup.Path())) {
        Report(REPORT_ERROR, "Failed to export network settings to a backup file");
        SetLibraryLoaded(false);
        return 1;
    }
    Report(REPORT_NORMAL, "Backed up existing network settings to backup file \"%s\"", backup.Path());
    SetLibraryLoaded(false);
    return RestoreNetworkSettings(backup.Path(), false);
}

// One call that configures a default network, and what to say when it fails.
struct ConfigureStep {
    bool (*call)(const char *name);
    const char *failed;
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
    {UseDefaultBridge, "Failed to create default auto bridged network %s"},
};

constexpr ConfigureStep HOSTONLY_STEPS[] = {
    {AssignSubnet, "Failed to assign subnet address to hostonly network: %s"},
    {UseAdapter, "Failed to add hostonly virtual adapter to hostonly network %s"},
    {UseDHCP, "Failed to add DHCP to hostonly network %s"},
};

constexpr ConfigureStep NAT_STEPS[] = {
    {AssignSubnet, "Failed to assign subnet address to NAT nework %s"},
    {UseAdapter, "Failed to add hostonly virtual adapter to NAT network %s"},
    {UseDHCP, "Failed to add DHCP to NAT network %s"},
    {UseNAT, "Failed to add NAT to NAT network %s"},
};

bool ConfigureNetwork(uint32_t vnet, const char *announcement, std::span<const ConfigureStep> steps) {
    const MallocString name = NetworkName(vnet);
    Report(REPORT_NORMAL, announcement, name.get());
    for (const ConfigureStep &step : steps) {
        if (!step.call(name.get())) {
            Report(REPORT_ERROR, step.failed, name.get());
            return false;
        }
    }
    return true;
}

bool PropagateDefaults() {
    const bool propagated = SweepAllNetworks(SWEEP_PROPAGATE) == 0;
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
    return SetLibraryLoaded(true) && ConfigureNetwork(0, "Configuring Bridged network %s", BRIDGED_STEPS) &&
           ConfigureNetwork(1, "Configuring hostonly network %s, probing for unused subnet ...",
                            HOSTONLY_STEPS) &&
           ConfigureNetwork(8, "Configuring NAT network %s, probing for unused subnet ...", NAT_STEPS) &&
           PropagateDefaults();
}

}  // namespace

int CleanupExistingConfig() {
    if (!HBL_CheckNetworkingDB()) {
        Report(REPORT_VERBOSE, "Configuration database not found");
        return 0;
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
        return 1;
    }
    Report(REPORT_VERBOSE, "Cleaned up existing configuration");
    return 0;
}

int RestoreNetworkSettings(const char *path, bool migrating) {
    if (!HBL_ImportDatabaseFromFile(path)) {
        Report(REPORT_ERROR, "Failed to import configuration information from backup file %s", path);
        return 1;
    }
    if (!SetLibraryLoaded(true)) {
        return 1;
    }
    const int result = SweepAllNetworks(SWEEP_PROPAGATE);
    Report(REPORT_VERBOSE, "%s config information for %s settings",
           result == 0 ? "Propagated" : "Failed to propagate", migrating ? "migrated" : "restored");
    if (result == 0) {
        Report(REPORT_NORMAL, "Restored network settings");
    } else {
        Report(REPORT_ERROR, "Failed to restore network settings from backup file \"%s\"", path);
        if (migrating) {
            Report(REPORT_VERBOSE, "Cleaning up configuration database on error");
            CleanupExistingConfig();
        }
    }
    SetLibraryLoaded(false);
    return result;
}

int ConfigureDefaultNetworks() {
    SetLibraryLoaded(false);
    if (!HBL_CreateNetworkingDB(true)) {
        Report(REPORT_ERROR, "Failed to create new networking database");
        return 1;
    }
    const bool configured = ConfigureNewDatabase();
    if (!configured) {
        Report(REPORT_VERBOSE, "Cleaning up existing database on error");
        CleanupExistingConfig();
    }
    SetLibraryLoaded(false);
    return configured ? 0 : 1;
}

int PostInstall(const char *oldVersion) {
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

int MigrateNetworkSettings(const char *path) {
    if (!IsRegularFile(path)) {
        Report(REPORT_ERROR, "Settings file \"%s\" does not exist", path);
        return 1;
    }
    if (IsDatabase(path)) {  // the clean-up would delete what is to be imported
        Report(REPORT_ERROR, "Settings file \"%s\" is the networking database itself", path);
        return 1;
    }
    CleanupExistingConfig();
    return RestoreNetworkSettings(path, true);
}
