#include <strings.h>

#include <cstdlib>
#include <cstring>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/hostAdapterChain.h"
#include "lib/harbrel/cache/cacheGuard.h"
#include "lib/harbrel/cache/defaultCache.h"
#include "lib/harbrel/cache/keptTexts.h"
#include "lib/harbrel/cache/tableProtocol.h"
#include "lib/string/tokens.h"

namespace {

bool Fits(const char *text, size_t size) {
    return strlen(text) + 1 <= size;
}

void Copy(char *buffer, const char *text) {
    memcpy(buffer, text, strlen(text) + 1);
}

// The entry's own text, for as long as the caller holds the guard; null without a message when there is none.
const char *FindAnswer(FunctionLog log, HBLNetworkConfigurationDB *db, const char *key) {
    db = NetCfgResolveCache(db, log);
    if (db == nullptr) {
        return nullptr;
    }
    const auto *answer =
        static_cast<const NetworkConfigDictionaryEntry *>(FindEntry(ANSWER_FAMILY, db, {.key = key}));
    return answer != nullptr ? answer->value : nullptr;
}

// Texts of an enumeration's three ends.
struct EnumerationWords {
    FunctionLog log;
    const char *noTable;
    const char *noSnapshot;
    const char *atEnd;
};

// The entry at `index` of the snapshot, or null with the reason logged.
const void *EntryAt(const EnumerationWords &words, const TableRef &table, uint32_t index) {
    if (table.Table() == nullptr) {
        words.log(LOG_ERR, "%s", words.noTable);
        return nullptr;
    }
    if (EnsureSnapshot(table) == Snapshot::Missing) {
        words.log(LOG_ERR, "%s", words.noSnapshot);
        return nullptr;
    }
    if (index >= *table.count) {
        words.log(LOG_INFO2, "%s", words.atEnd);
        return nullptr;
    }
    return (*table.array)[index];
}

// The caller's buffers for one forward.
struct ForwardBuffers {
    char *vmIP;
    size_t vmIPSize;
    uint16_t *vmPort;
    char *description;  // null: not asked for
    size_t *descriptionSize;
};

// Nothing is stored unless everything fits.
bool CopyForward(FunctionLog log, uint32_t descriptionLevel, const NATPortFwdEntry &forward,
                 const ForwardBuffers &out) {
    if (!Fits(forward.vmIP, out.vmIPSize)) {
        log(LOG_ERR, "Insufficient buffer length: %zu for IP address: %s", out.vmIPSize, forward.vmIP);
        return false;
    }
    bool described = out.description != nullptr && out.descriptionSize != nullptr;
    if (described && forward.description != nullptr) {
        if (!Fits(forward.description, *out.descriptionSize)) {
            log(descriptionLevel, "Insufficient buffer length for description");
            return false;
        }
        Copy(out.description, forward.description);
        *out.descriptionSize = strlen(forward.description) + 1;
    } else if (described) {
        *out.descriptionSize = 0;
    }
    Copy(out.vmIP, forward.vmIP);
    *out.vmPort = forward.vmPort;
    return true;
}

// A new record for one mapping; null when memory ran out.
HBL_HostAdapter *NewHostAdapter(const char *name, int32_t vnet) {
    auto *adapter = static_cast<HBL_HostAdapter *>(calloc(1, sizeof(HBL_HostAdapter)));
    if (adapter != nullptr) {
        adapter->version = 1;
        adapter->net.version = 1;
        adapter->net.type = HBL_NETWORK_TYPE_VNET;
        adapter->net.vnet = vnet;
        Copy(adapter->deviceName, name);
    }
    return adapter;
}

}  // namespace

bool HBLNetCfgGetAnswerString(HBLNetworkConfigurationDB *db, const char *key, const char **value) {
    const CacheReading reading;
    const char *const text = FindAnswer(__func__, db, key);
    if (text == nullptr) {
        return false;
    }
    *value = NetCfgKeepText(text);
    return true;
}

std::optional<std::string> HBLNetCfgCopyAnswer(HBLNetworkConfigurationDB *db, const char *key) {
    const CacheReading reading;
    const char *const text = FindAnswer("HBLNetCfgGetAnswerString", db, key);
    return text != nullptr ? std::optional<std::string>(text) : std::nullopt;
}

bool HBLNetCfgGetAnswerInt32(HBLNetworkConfigurationDB *db, const char *key, int32_t *value) {
    const CacheReading reading;
    const char *const text = FindAnswer("HBLNetCfgGetAnswerString", db, key);
    uint32_t number = 0;
    if (text == nullptr || !StrToUint(&number, text)) {
        HBLLog(LOG_ERR, __func__, "Value not found or failed to convert value to integer: %s",
               TextOrNull(text));
        return false;
    }
    *value = static_cast<int32_t>(number);
    return true;
}

bool HBLNetCfgGetAnswerBool(HBLNetworkConfigurationDB *db, const char *key, bool *value) {
    const CacheReading reading;
    const char *const text = FindAnswer("HBLNetCfgGetAnswerString", db, key);
    if (text == nullptr) {
        return false;
    }
    *value = strcasecmp(text, "yes") == 0;
    return true;
}

bool HBLNetCfgLookupVnetForHostAdapter(HBLNetworkConfigurationDB *db, const char *adapter, int32_t *vnet) {
    const CacheReading reading;
    db = NetCfgResolveCache(db, __func__);
    if (db == nullptr) {
        return false;
    }
    if (db->bridgeHash == nullptr || HashTable_GetNumElements(db->bridgeHash) == 0) {
        HBLLog(LOG_INFO2, __func__, "List of Bridge mappings is empty");
        return false;
    }
    const auto *mapping =
        static_cast<const BridgeMappingEntry *>(FindEntry(BRIDGE_FAMILY, db, {.key = adapter}));
    if (mapping == nullptr) {
        HBLLog(LOG_INFO2, __func__, "Cannot find mapping for adapter: %s in hash: %p", adapter,
               static_cast<const void *>(db->bridgeHash));
        return false;
    }
    HBLLog(LOG_INFO2, __func__, "Found Bridge mapping entry: %p for adapter: %s",
           static_cast<const void *>(mapping), adapter);
    *vnet = mapping->vnet;
    return true;
}

bool HBLNetCfgLookupHostAdaptersForVnet(HBLNetworkConfigurationDB *db, int32_t vnet, HostAdapterChain *list,
                                        bool exclude) {
    const CacheReading reading;
    db = NetCfgResolveCache(db, __func__);
    if (db == nullptr) {
        return false;
    }
    TableRef table = BRIDGE_FAMILY.table(db, {});
    if (table.Table() == nullptr || HashTable_GetNumElements(table.Table()) == 0) {
        HBLLog(LOG_INFO2, __func__, "List of bridge mappings is empty");
        return true;
    }
    const Snapshot snapshot = EnsureSnapshot(table);
    if (snapshot == Snapshot::Missing) {
        HBLLog(LOG_ERR, __func__, "Failure in creating array of Bridge mappings");
        return false;
    }
    if (snapshot == Snapshot::Built) {
        HBLLog(LOG_INFO2, __func__, "Created array of Bridge mappings");
    }
    for (size_t i = 0; i < *table.count; ++i) {
        const auto *mapping = static_cast<const BridgeMappingEntry *>((*table.array)[i]);
        if ((mapping->vnet == vnet) == exclude) {
            continue;
        }
        if (strlen(mapping->adapter) >= NETCFG_MAX_ADAPTER_NAME) {
            HBLLog(LOG_ERR, __func__, "Adapter: %s is longer than expected, skipping", mapping->adapter);
            continue;
        }
        HBL_HostAdapter *adapter = NewHostAdapter(mapping->adapter, vnet);
        if (adapter == nullptr) {
            HBLLog(LOG_ERR, __func__, "Memory allocation error");
            return false;
        }
        list->Append(adapter);
    }
    return true;
}

bool HBLNetCfgLookupDHCPMACToIP(HBLNetworkConfigurationDB *db, uint32_t vnet, const char *mac, char *ip,
                                size_t ipSize) {
    const CacheReading reading;
    db = NetCfgResolveCache(db, __func__);
    if (db == nullptr) {
        return false;
    }
    RecordFields record = {.key = mac, .vnet = static_cast<int32_t>(vnet)};
    const HashTable *table = DHCP_FAMILY.table(db, record).Table();
    if (table == nullptr) {
        HBLLog(LOG_ERR, __func__, "List of DHCP mappings is empty");
        return false;
    }
    const auto *mapping = static_cast<const DHCPMACToIPEntry *>(FindEntry(DHCP_FAMILY, db, record));
    if (mapping == nullptr) {
        HBLLog(LOG_INFO2, __func__, "Cannot find mapping for MAC: %s in hash: %p", mac,
               static_cast<const void *>(table));
        return false;
    }
    HBLLog(LOG_INFO2, __func__, "Found DHCP entry: %p for MAC: %s", static_cast<const void *>(mapping), mac);
    if (!Fits(mapping->ip, ipSize)) {
        HBLLog(LOG_ERR, __func__, "Insufficient buffer size: %zu for IP address: %s", ipSize, mapping->ip);
        return false;
    }
    Copy(ip, mapping->ip);
    return true;
}

bool HBLNetCfgEnumDHCPMACToIP(HBLNetworkConfigurationDB *db, uint32_t vnet, uint32_t *index, char *mac,
                              size_t macSize, char *ip, size_t ipSize) {
    const CacheReading reading;
    db = NetCfgResolveCache(db, __func__);
    if (db == nullptr) {
        return false;
    }
    const EnumerationWords words = {__func__, "List of mappings is empty",
                                    "Failure in creating array of DHCP mappings", "No mappings to enumerate"};
    const auto *mapping = static_cast<const DHCPMACToIPEntry *>(
        EntryAt(words, DHCP_FAMILY.table(db, {.vnet = static_cast<int32_t>(vnet)}), *index));
    if (mapping == nullptr) {
        return false;
    }
    if (!Fits(mapping->ip, ipSize)) {
        HBLLog(LOG_ERR, __func__, "Insufficient buffer size: %zu for IP address: %s", ipSize, mapping->ip);
        return false;
    }
    if (!Fits(mapping->mac, macSize)) {
        HBLLog(LOG_ERR, __func__, "Insufficient buffer size: %zu for MAC address: %s", macSize, mapping->mac);
        return false;
    }
    Copy(ip, mapping->ip);
    Copy(mac, mapping->mac);
    ++*index;
    return true;
}

bool HBLNetCfgLookupNATPortFwd(HBLNetworkConfigurationDB *db, uint32_t vnet, bool isTcp, uint16_t hostPort,
                               char *vmIP, size_t vmIPSize, uint16_t *vmPort, char *description,
                               size_t *descriptionSize) {
    const CacheReading reading;
    db = NetCfgResolveCache(db, __func__);
    if (db == nullptr) {
        return false;
    }
    RecordFields record = {.vnet = static_cast<int32_t>(vnet), .isTcp = isTcp, .hostPort = hostPort};
    if (NAT_FAMILY.table(db, record).Table() == nullptr) {
        HBLLog(LOG_ERR, __func__, "List of NAT forwarded ports is empty");
        return false;
    }
    const auto *forward = static_cast<const NATPortFwdEntry *>(FindEntry(NAT_FAMILY, db, record));
    if (forward == nullptr) {
        HBLLog(LOG_ERR, __func__, "Port lookup failed");
        return false;
    }
    HBLLog(LOG_INFO2, __func__, "Port Fwd Lookup succeeded: %s:%u for %u, %s", forward->vmIP, forward->vmPort,
           hostPort, ProtocolName(isTcp));
    return CopyForward(__func__, LOG_INFO2, *forward, {vmIP, vmIPSize, vmPort, description, descriptionSize});
}

bool HBLNetCfgEnumNATPortFwd(HBLNetworkConfigurationDB *db, uint32_t vnet, bool isTcp, uint32_t *index,
                             uint16_t *hostPort, char *vmIP, size_t vmIPSize, uint16_t *vmPort,
                             char *description, size_t *descriptionSize) {
    const CacheReading reading;
    db = NetCfgResolveCache(db, __func__);
    if (db == nullptr) {
        return false;
    }
    const EnumerationWords words = {__func__, "List of forwarded ports is empty",
                                    "Failed to create array of forwarded ports", "No ports to enumerate"};
    RecordFields record = {.vnet = static_cast<int32_t>(vnet), .isTcp = isTcp};
    const auto *forward =
        static_cast<const NATPortFwdEntry *>(EntryAt(words, NAT_FAMILY.table(db, record), *index));
    if (forward == nullptr ||
        !CopyForward(__func__, LOG_ERR, *forward, {vmIP, vmIPSize, vmPort, description, descriptionSize})) {
        return false;
    }
    *hostPort = forward->hostPort;
    ++*index;
    return true;
}
