// The grammar of the networking database: version line, record kinds, parsers, formatter.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cache.h"

constexpr size_t NETCFG_LINE_LIMIT = 1024;  // for ReadNextLine: lines of up to 2047 bytes are read whole
constexpr const char *NETCFG_VERSION_KEY = "VERSION";
constexpr const char *NETCFG_BACKUP_VERSION_KEY = "BACKUP_VERSION";
constexpr uint32_t NETCFG_MAJOR_VERSION = 1;  // supported and written
constexpr uint32_t NETCFG_MINOR_VERSION = 0;  // written
constexpr const char *NETCFG_VERSION_FORMAT = "%s=%u,%u\n";

enum NetCfgRecordType : uint32_t {
    NETCFG_REC_ANSWER = 1,
    NETCFG_REC_REMOVE_ANSWER = 2,
    NETCFG_REC_ADD_NAT_PORTFWD = 3,
    NETCFG_REC_REMOVE_NAT_PORTFWD = 4,
    NETCFG_REC_ADD_DHCP_MAC_TO_IP = 5,
    NETCFG_REC_REMOVE_DHCP_MAC_TO_IP = 6,
    NETCFG_REC_ADD_BRIDGE_MAPPING = 7,
    NETCFG_REC_REMOVE_BRIDGE_MAPPING = 8,
};

// `rest` is the line after the keyword and one delimiter. True when the line was applied to the cache.
bool DictRecordParseFunct(HBLNetworkConfigurationDB *db, uint32_t recordType, const char *rest);
bool NatFwdRecordParseFunct(HBLNetworkConfigurationDB *db, uint32_t recordType, const char *rest);
bool DhcpMacRecordParseFunct(HBLNetworkConfigurationDB *db, uint32_t recordType, const char *rest);
bool BridgeMappingRecordParseFunct(HBLNetworkConfigurationDB *db, uint32_t recordType, const char *rest);

// Takes one record line apart and applies it. A line that does not parse is logged with its number under
// its name and dropped; an unknown keyword is passed over in silence.
void NetCfgApplyRecordLine(HBLNetworkConfigurationDB *db, unsigned lineNumber, const char *line,
                           FunctionLog log);

// `text` is what follows the "=" of a version line. Either output may be null.
bool ParseVersionString(const char *text, uint32_t *major, uint32_t *minor, uint32_t supportedMajor);

struct NetCfgRecordFormatCtx {
    uint32_t recordType;
    FILE *stream;
    HBLNetworkConfigurationDB *journal = nullptr;  // set when `stream` is this cache's journal
};

// Formats one entry as a record of the context's type and writes it. The shape of a hash table walk callback;
// `key` is not used. 0 for success, anything else stops a walk.
int NetCfgWriteRecordToConfig(const void *key, void *record, void *context);
