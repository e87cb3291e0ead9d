// The cache's tables without journal and without default cache: what the loader, import and rollback use.
#pragma once

#include "lib/harbrel/cache/cache.h"

// Adding replaces a record under the same key. Removing what is not there fails, except for an answer.
bool NetCfgHashAddAnswer(HBLNetworkConfigurationDB *db, const char *key, const char *value);
bool NetCfgHashRemoveAnswer(HBLNetworkConfigurationDB *db, const char *key);
// The answer of a vnet's field.
bool NetCfgUtilAddVnetRecord(HBLNetworkConfigurationDB *db, uint32_t vnet, const char *field,
                             const char *value);
bool NetCfgHashAddBridgeMapping(HBLNetworkConfigurationDB *db, const char *adapter, int32_t vnet);
bool NetCfgHashRemoveBridgeMapping(HBLNetworkConfigurationDB *db, const char *adapter);
bool NetCfgHashAddDHCPMACToIP(HBLNetworkConfigurationDB *db, uint32_t vnet, const char *mac, const char *ip);
bool NetCfgHashRemoveDHCPMACToIP(HBLNetworkConfigurationDB *db, uint32_t vnet, const char *mac);
bool NetCfgHashAddNATPortFwd(HBLNetworkConfigurationDB *db, uint32_t vnet, bool isTcp, uint16_t hostPort,
                             const char *vmIP, uint16_t vmPort, const char *description);
bool NetCfgHashRemoveNATPortFwd(HBLNetworkConfigurationDB *db, uint32_t vnet, bool isTcp, uint16_t hostPort);

// Free callbacks of the tables; each takes an entry of its family.
void NetCfgFreeEntry(void *entry);
void NetCfgBridgeMappingFreeEntry(void *entry);
void NetCfgDHCPMACToIPFreeEntry(void *entry);
void NetCfgNATPortFwdFreeEntry(void *entry);
