#include "lib/harbrel/database/upgrade.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <string_view>
#include <vector>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/records.h"
#include "lib/harbrel/cache/tables.h"
#include "lib/misc/hashTable.h"
#include "lib/misc/owners.h"
#include "lib/string/tokens.h"

namespace {

constexpr const char *CLEANUP = "NetCfgCleanupDatabaseFields";
constexpr const char *UPDATE = "NetCfgUpdateDatabaseFields";

constexpr std::string_view VNET_KEY_PREFIX = "VNET_";
constexpr std::string_view LEGACY_BRIDGE_FIELD = "INTERFACE";
constexpr std::string_view LEGACY_ADDRESS_FIELD = "HOSTONLY_HOSTADDR";

// What may enter a new database, compared with regard to case.
constexpr std::string_view GLOBAL_KEYS[] = {
    "HBL_DEFAULT_HOSTONLY_VNET", "HBL_DEFAULT_NAT_VNET", "HBL_LOG_FILE", "HBL_LOGLEVEL",
    "HBL_DEFAULT_BRIDGE_VNET",
};
constexpr std::string_view VNET_FIELDS[] = {
    "HOSTONLY_SUBNET",
    "HOSTONLY_NETMASK",
    "VIRTUAL_ADAPTER_ADDR",
    "VIRTUAL_ADAPTER",
    "VIRTUAL_ADAPTER_NAME",
    "DHCP",
    "DHCP_PARAM_LEASE_START_IP",
    "DHCP_PARAM_LEASE_END_IP",
    "DHCP_PARAM_DEFAULT_LEASE_TIME",
    "DHCP_PARAM_MAX_LEASE_TIME",
    "DHCP_PARAM_BROADCAST_ADDR",
    "DHCP_PARAM_DNS_ADDR",
    "DHCP_PARAM_ROUTERS",
    "DHCP_PARAM_DOMAIN_NAME",
    "DHCP_PARAM_SUB_DEFAULT_LEASE_TIME",
    "DHCP_PARAM_SUB_MAX_LEASE_TIME",
    "DHCP_CFG_HASH",
    "NAT",
    "NAT_PARAM_GATEWAY_IP",
    "NAT_PARAM_INT_GATEWAY_IPSUBNETMASK",
    "NAT_PARAM_CONFIG_PORT",
    "NAT_PARAM_ACTIVE_FTP",
    "NAT_PARAM_ALLOW_ANY_OUI",
    "NAT_PARAM_DEVICE",
    "NAT_PARAM_UDP_TIMEOUT",
    LEGACY_BRIDGE_FIELD,
    LEGACY_ADDRESS_FIELD,
};
static_assert(std::size(VNET_FIELDS) == 27);

bool Contains(std::span<const std::string_view> names, std::string_view name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

bool IsVnetKey(const char *key) {
    return std::string_view(key).starts_with(VNET_KEY_PREFIX);
}

bool HasAnswers(const HBLNetworkConfigurationDB *db) {
    return db->dictHash != nullptr && HashTable_GetNumElements(db->dictHash) != 0;
}

// The entries of the answers table at this moment; empty when the array could not be built.
std::vector<NetworkConfigDictionaryEntry *> TakeAnswers(const HBLNetworkConfigurationDB *db) {
    void **array = nullptr;
    size_t count = 0;
    HashTable_ToArray(db->dictHash, &array, &count);
    const MallocBlock<void *> owner(array);
    std::vector<NetworkConfigDictionaryEntry *> entries;
    entries.reserve(count);
    for (void *entry : std::span(array, count)) {
        entries.push_back(static_cast<NetworkConfigDictionaryEntry *>(entry));
    }
    return entries;
}

// Notes vnet and field of a VNET_ key in its entry. False when the number cannot be read or is above 255.
bool SplitVnetKey(NetworkConfigDictionaryEntry *entry) {
    unsigned index = VNET_KEY_PREFIX.size();
    int32_t vnet = 0;
    if (!GetNextIntToken(&vnet, &index, entry->key, "_") || static_cast<uint32_t>(vnet) >= HBL_NUM_VNETS) {
        return false;
    }
    entry->vnet = static_cast<uint32_t>(vnet);
    entry->vnetField = entry->key + index + (entry->key[index] != '\0' ? 1 : 0);
    return true;
}

void FilterEntry(HBLNetworkConfigurationDB *db, NetworkConfigDictionaryEntry *entry) {
    bool mayStay = false;
    if (IsVnetKey(entry->key)) {
        if (!SplitVnetKey(entry)) {
            HBLLog(LOG_WRN, CLEANUP, "Failed to parse vnet number in record: %s, deleting record",
                   entry->key);
            HashTable_Delete(db->dictHash, entry->key);
            return;
        }
        mayStay = Contains(VNET_FIELDS, entry->vnetField);
    } else {
        mayStay = Contains(GLOBAL_KEYS, entry->key);
    }
    if (!mayStay) {
        HBLLog(LOG_INFO2, CLEANUP, "Deleting record - %s:%s from backup cache", entry->key, entry->value);
        HashTable_Delete(db->dictHash, entry->key);
    }
}

bool CleanupDatabaseFields(HBLNetworkConfigurationDB *db) {
    if (!HasAnswers(db)) {
        HBLLog(LOG_INFO2, CLEANUP, "Dictionary hash table is empty");
        return true;
    }
    const auto entries = TakeAnswers(db);
    if (entries.empty()) {
        HBLLog(LOG_INFO2, CLEANUP, "Failed to create array of dictionary type records");
        return false;
    }
    for (NetworkConfigDictionaryEntry *entry : entries) {
        FilterEntry(db, entry);
    }
    return true;
}

bool UpgradeBridgeField(HBLNetworkConfigurationDB *db, const NetworkConfigDictionaryEntry *entry) {
    // With a blank in it the name would be read back as another one.
    if (strlen(entry->value) >= NETCFG_MAX_ADAPTER_NAME || strchr(entry->value, ' ') != nullptr) {
        HBLLog(LOG_WRN, UPDATE, "Invalid adapter name: %s, deleting record", entry->value);
        return true;
    }
    if (!NetCfgHashAddBridgeMapping(db, entry->value, static_cast<int32_t>(entry->vnet))) {
        HBLLog(LOG_WRN, UPDATE, "Failed to add bridge mapping record to hash table, aborting");
        return false;
    }
    return true;
}

bool UpgradeAddressField(HBLNetworkConfigurationDB *db, const NetworkConfigDictionaryEntry *entry) {
    if (!NetCfgUtilAddVnetRecord(db, entry->vnet, "VIRTUAL_ADAPTER", "yes") ||
        !NetCfgUtilAddVnetRecord(db, entry->vnet, "VIRTUAL_ADAPTER_ADDR", entry->value)) {
        HBLLog(LOG_ERR, UPDATE, "Failed to update HOSTONLY_HOSTADDR record, aborting");
        return false;
    }
    return true;
}

// Version 0 kept its bridging and the host's addresses in answers of their own.
bool UpgradeFromVersion0(HBLNetworkConfigurationDB *db) {
    auto entries = TakeAnswers(db);
    if (entries.empty()) {
        HBLLog(LOG_INFO2, UPDATE, "Failed to create array of records in dictHash");
        return false;
    }
    // Only the legacy entries are walked: the records that they turn into may replace, and so free, others.
    std::erase_if(entries, [](const NetworkConfigDictionaryEntry *entry) {
        return !IsVnetKey(entry->key) ||
               (entry->vnetField != LEGACY_BRIDGE_FIELD && entry->vnetField != LEGACY_ADDRESS_FIELD);
    });
    for (NetworkConfigDictionaryEntry *entry : entries) {
        const bool upgraded = entry->vnetField == LEGACY_BRIDGE_FIELD ? UpgradeBridgeField(db, entry)
                                                                      : UpgradeAddressField(db, entry);
        if (!upgraded) {
            return false;
        }
        HashTable_Delete(db->dictHash, entry->key);
    }
    return true;
}

}  // namespace

bool NetCfgUpdateDatabaseFields(HBLNetworkConfigurationDB *db) {
    HBLLog(LOG_INFO2, __func__, "Source version - %u,%u, Destination version - %u,%u", db->majorVersion,
           db->minorVersion, NETCFG_MAJOR_VERSION, NETCFG_MINOR_VERSION);
    if (!CleanupDatabaseFields(db)) {
        HBLLog(LOG_ERR, __func__, "Failed to cleanup database fields");
        return false;
    }
    if (db->majorVersion == NETCFG_MAJOR_VERSION && db->minorVersion == NETCFG_MINOR_VERSION) {
        HBLLog(LOG_ERR, __func__, "Source and destination database versions are same");
    } else if (db->majorVersion == 0 && HasAnswers(db) && !UpgradeFromVersion0(db)) {
        return false;
    }
    HBLLog(LOG_INFO2, "HBLNetCfgImportConfig", "Updated database fields");
    return true;
}
