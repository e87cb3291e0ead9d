// The networking database in memory: hash tables that hold the replayed state of the file, reads that never
// touch the file, and changes that go to the table first and are then appended to the open file.
//
// Functions with the prefix HBLNetCfg use the default cache when the cache pointer is null. Functions with
// the prefix NetCfgHash (tables.h) need a real cache and touch tables only; they are for caches that no other
// thread knows yet. The rest keeps to the guard (cacheGuard.h): one thread changes, others may read. Whoever
// changes holds the database lock (database/database.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

#include "lib/harbrel/base/services.h"
#include "lib/harbrel/harbrel.h"
#include "lib/misc/hashTable.h"

class HostAdapterChain;
struct FileLockToken;

constexpr uint32_t NETCFG_HASH_BUCKETS = 512;
constexpr size_t NETCFG_MAX_ADAPTER_NAME = 128;  // with its terminator
constexpr size_t NETCFG_MAX_DESCRIPTION = 128;   // with its terminator

// The cache and its entries. The order of their fields is part of their definition.
struct NetworkConfigDictionaryEntry {
    uint32_t vnet;    // zero except during import
    char *vnetField;  // points into key; null except during import
    char *key;
    char *value;
};

struct BridgeMappingEntry {
    int32_t vnet;  // HBL_VNET_NONE: bridged to no network
    char *adapter;
};

struct DHCPMACToIPEntry {
    uint32_t vnet;
    char *mac;  // canonical form
    char *ip;
};

struct NATPortFwdEntry {
    uint32_t vnet;
    uint8_t isTcp;
    uint16_t hostPort;
    char *vmIP;
    uint16_t vmPort;
    char *description;  // may be null
};

// The arrays are snapshots of the tables' entries for enumeration, built on demand and dropped on change.
struct NATVnetPortFwdConfig {
    HashTable *tcpHash;
    void **tcpArray;  // of NATPortFwdEntry
    size_t tcpCount;
    HashTable *udpHash;
    void **udpArray;
    size_t udpCount;
};

struct DHCPMACToIPConfig {
    HashTable *hash;
    void **array;  // of DHCPMACToIPEntry
    size_t count;
};

// The file behind the stream as this cache last saw it. The cache's own journal lines move `size` on, so
// anything else that differs from a fresh look at the path is another process's doing.
struct NetCfgFileIdentity {
    uint64_t device;
    uint64_t inode;
    uint64_t size;           // bytes
    uint8_t endsInsideLine;  // the last line has no line end yet; the next journal line supplies it
};

struct HBLNetworkConfigurationDB {
    FileLockToken *lockToken;  // null while this cache holds no lock
    FILE *stream;              // all journal lines go here
    char *path;
    uint8_t isBackup;
    uint32_t majorVersion;  // of the file as read
    uint32_t minorVersion;
    HashTable *dictHash;
    HashTable *bridgeHash;
    void **bridgeArray;  // of BridgeMappingEntry
    size_t bridgeCount;
    NATVnetPortFwdConfig *natConfig[HBL_NUM_VNETS];
    DHCPMACToIPConfig *dhcpConfig[HBL_NUM_VNETS];
    NetCfgFileIdentity fileIdentity;
    uint8_t lockLost;    // the lock could not be given back; the cache counts as locked
    uint8_t hasChanged;  // this process has written to the file
};

// The default cache's slot; the cache is null while nothing is loaded.
HBLNetworkConfigurationDB **HBLNetCfgDefaultSlot();

// Takes the file behind the stream as the journal, once its contents are in the cache: its identity is noted,
// and from now on lines go to its end even if another process has appended to it. False, with errno, when the
// file cannot be looked at.
bool NetCfgTrackFile(HBLNetworkConfigurationDB *db);
// Whether `path` still names the tracked file, with the size that it had after our last line.
bool NetCfgFileIsAsLastSeen(const HBLNetworkConfigurationDB *db);
// Whether `path` names a file other than the tracked one.
bool NetCfgFileWasReplaced(const HBLNetworkConfigurationDB *db);
// Whether both caches track one file.
bool NetCfgSameFile(const HBLNetworkConfigurationDB *db, const HBLNetworkConfigurationDB *other);

// Reads.
// For texts that leave the library: *value stays good until the last unload (keptTexts.h).
bool HBLNetCfgGetAnswerString(HBLNetworkConfigurationDB *db, const char *key, const char **value);
// For all other uses: the value's copy, or nothing.
std::optional<std::string> HBLNetCfgCopyAnswer(HBLNetworkConfigurationDB *db, const char *key);
bool HBLNetCfgGetAnswerInt32(HBLNetworkConfigurationDB *db, const char *key, int32_t *value);
bool HBLNetCfgGetAnswerBool(HBLNetworkConfigurationDB *db, const char *key, bool *value);
bool HBLNetCfgLookupVnetForHostAdapter(HBLNetworkConfigurationDB *db, const char *adapter, int32_t *vnet);
// Appends the mappings of one vnet to the list, or with `exclude` those of all others.
bool HBLNetCfgLookupHostAdaptersForVnet(HBLNetworkConfigurationDB *db, int32_t vnet, HostAdapterChain *list,
                                        bool exclude);
bool HBLNetCfgLookupDHCPMACToIP(HBLNetworkConfigurationDB *db, uint32_t vnet, const char *mac, char *ip,
                                size_t ipSize);
bool HBLNetCfgEnumDHCPMACToIP(HBLNetworkConfigurationDB *db, uint32_t vnet, uint32_t *index, char *mac,
                              size_t macSize, char *ip, size_t ipSize);
// *descriptionSize: in the buffer's size, out the length with its terminator; 0 when the forward has none.
bool HBLNetCfgLookupNATPortFwd(HBLNetworkConfigurationDB *db, uint32_t vnet, bool isTcp, uint16_t hostPort,
                               char *vmIP, size_t vmIPSize, uint16_t *vmPort, char *description,
                               size_t *descriptionSize);
bool HBLNetCfgEnumNATPortFwd(HBLNetworkConfigurationDB *db, uint32_t vnet, bool isTcp, uint32_t *index,
                             uint16_t *hostPort, char *vmIP, size_t vmIPSize, uint16_t *vmPort,
                             char *description, size_t *descriptionSize);

// Changes, all journalled. Callers outside this folder pass isRollback false.
bool NetCfgAddAnswerStringInt(HBLNetworkConfigurationDB *db, const char *key, const char *value,
                              bool isRollback);
bool HBLNetCfgAddAnswerString(HBLNetworkConfigurationDB *db, const char *key, const char *value);
bool HBLNetCfgAddAnswerInt32(HBLNetworkConfigurationDB *db, const char *key, int32_t value);
bool HBLNetCfgSetAnswerBool(HBLNetworkConfigurationDB *db, const char *key, bool value);
bool HBLNetCfgRemoveAnswer(HBLNetworkConfigurationDB *db, const char *key);
bool HBLNetCfgAddHostAdapterMapping(HBLNetworkConfigurationDB *db, const char *adapter, int32_t vnet,
                                    bool isRollback);
bool HBLNetCfgRemoveHostAdapterMapping(HBLNetworkConfigurationDB *db, const char *adapter);
bool HBLNetCfgAddDHCPMACToIP(HBLNetworkConfigurationDB *db, uint32_t vnet, const char *mac, const char *ip,
                             bool isRollback);
bool HBLNetCfgRemoveDHCPMACToIP(HBLNetworkConfigurationDB *db, uint32_t vnet, const char *mac);
bool HBLNetCfgAddNATPortFwd(HBLNetworkConfigurationDB *db, uint32_t vnet, bool isTcp, uint16_t hostPort,
                            const char *vmIP, uint16_t vmPort, const char *description, bool isRollback);
bool HBLNetCfgRemoveNATPortFwd(HBLNetworkConfigurationDB *db, uint32_t vnet, bool isTcp, uint16_t hostPort);

// Bulk removal; the records leave the cache even when a removal line cannot be written.
bool HBLNetCfgRemoveAllDHCPMACToIPMapping(HBLNetworkConfigurationDB *db, uint32_t vnet, bool writeRecords);
bool HBLNetCfgRemoveAllNATPortFwd(HBLNetworkConfigurationDB *db, uint32_t vnet, bool doTcp, bool doUdp,
                                  bool writeRecords);
