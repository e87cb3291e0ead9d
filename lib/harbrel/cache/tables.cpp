#include "lib/harbrel/cache/tables.h"

#include <cerrno>
#include <cstdlib>

#include "lib/err/errText.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/tableProtocol.h"
#include "lib/misc/owners.h"
#include "lib/string/str.h"

bool NetCfgHashAddAnswer(HBLNetworkConfigurationDB *db, const char *key, const char *value) {
    return AddToTable(ANSWER_FAMILY, db, {.key = key, .value = value});
}

bool NetCfgHashRemoveAnswer(HBLNetworkConfigurationDB *db, const char *key) {
    return RemoveFromTable(ANSWER_FAMILY, db, {.key = key});
}

bool NetCfgUtilAddVnetRecord(HBLNetworkConfigurationDB *db, uint32_t vnet, const char *field,
                             const char *value) {
    MallocString key(Str_Asprintf(nullptr, "VNET_%u_%s", vnet, field));
    if (key == nullptr) {
        HBLLog(LOG_ERR, __func__, "Memory allocation failure, error: %s", Err_ErrnoText(errno));
        return false;
    }
    if (!NetCfgHashAddAnswer(db, key.get(), value)) {
        HBLLog(LOG_ERR, __func__, "Failed to add dictionary type record to hash table");
        return false;
    }
    return true;
}

bool NetCfgHashAddBridgeMapping(HBLNetworkConfigurationDB *db, const char *adapter, int32_t vnet) {
    return AddToTable(BRIDGE_FAMILY, db, {.key = adapter, .vnet = vnet});
}

bool NetCfgHashRemoveBridgeMapping(HBLNetworkConfigurationDB *db, const char *adapter) {
    return RemoveFromTable(BRIDGE_FAMILY, db, {.key = adapter});
}

bool NetCfgHashAddDHCPMACToIP(HBLNetworkConfigurationDB *db, uint32_t vnet, const char *mac, const char *ip) {
    return AddToTable(DHCP_FAMILY, db, {.key = mac, .value = ip, .vnet = static_cast<int32_t>(vnet)});
}

bool NetCfgHashRemoveDHCPMACToIP(HBLNetworkConfigurationDB *db, uint32_t vnet, const char *mac) {
    return RemoveFromTable(DHCP_FAMILY, db, {.key = mac, .vnet = static_cast<int32_t>(vnet)});
}

bool NetCfgHashAddNATPortFwd(HBLNetworkConfigurationDB *db, uint32_t vnet, bool isTcp, uint16_t hostPort,
                             const char *vmIP, uint16_t vmPort, const char *description) {
    return AddToTable(NAT_FAMILY, db,
                      {.value = vmIP,
                       .vnet = static_cast<int32_t>(vnet),
                       .isTcp = isTcp,
                       .hostPort = hostPort,
                       .vmPort = vmPort,
                       .description = description});
}

bool NetCfgHashRemoveNATPortFwd(HBLNetworkConfigurationDB *db, uint32_t vnet, bool isTcp, uint16_t hostPort) {
    return RemoveFromTable(NAT_FAMILY, db,
                           {.vnet = static_cast<int32_t>(vnet), .isTcp = isTcp, .hostPort = hostPort});
}

void NetCfgFreeEntry(void *entry) {
    auto *answer = static_cast<NetworkConfigDictionaryEntry *>(entry);
    if (answer == nullptr) {
        HBLLog(LOG_ERR, __func__, "Invalid arguments");
        return;
    }
    free(answer->key);
    free(answer->value);
    free(answer);
}

void NetCfgBridgeMappingFreeEntry(void *entry) {
    auto *mapping = static_cast<BridgeMappingEntry *>(entry);
    if (mapping == nullptr) {
        HBLLog(LOG_ERR, __func__, "Invalid arguments");
        return;
    }
    HBLLog(LOG_INFO2, __func__, "Free called over host adapter: %s, vnet: %d", TextOrNull(mapping->adapter),
           mapping->vnet);
    free(mapping->adapter);
    free(mapping);
}

void NetCfgDHCPMACToIPFreeEntry(void *entry) {
    auto *mapping = static_cast<DHCPMACToIPEntry *>(entry);
    if (mapping == nullptr) {
        HBLLog(LOG_ERR, __func__, "Invalid arguments");
        return;
    }
    HBLLog(LOG_INFO2, __func__, "Free called over vnet; %d, mac: %s, ip: %s", mapping->vnet,
           TextOrNull(mapping->mac), TextOrNull(mapping->ip));
    free(mapping->mac);
    free(mapping->ip);
    free(mapping);
}

void NetCfgNATPortFwdFreeEntry(void *entry) {
    auto *forward = static_cast<NATPortFwdEntry *>(entry);
    if (forward == nullptr) {
        HBLLog(LOG_ERR, __func__, "Invalid arguments");
        return;
    }
    HBLLog(LOG_INFO2, __func__, "Free called over vnet: %d, hostport: %u, VM: %s:%u", forward->vnet,
           forward->hostPort, TextOrNull(forward->vmIP), forward->vmPort);
    free(forward->vmIP);
    free(forward->description);
    free(forward);
}
