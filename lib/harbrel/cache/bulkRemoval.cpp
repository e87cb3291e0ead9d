#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cacheGuard.h"
#include "lib/harbrel/cache/defaultCache.h"
#include "lib/harbrel/cache/tableProtocol.h"

namespace {

struct FailureLine {
    uint32_t level;
    FunctionLog log;
    const char *text;
};

// Frees the table and its snapshot; with `writeRecords` each record's removal line is journalled first, up to
// the first failure. False when a line could not be written.
bool RemoveWholeTable(const RecordFamily &family, HBLNetworkConfigurationDB *db, const TableRef &table,
                      bool writeRecords, const FailureLine &failure) {
    NetCfgRecordFormatCtx context = {family.removeType, db->stream, db};
    bool written = !writeRecords || HashTable_ForEach(*table.hash, NetCfgWriteRecordToConfig, &context) == 0;
    if (!written) {
        failure.log(failure.level, "%s", failure.text);
    }
    FreeTable(table);
    return written;
}

}  // namespace

bool HBLNetCfgRemoveAllDHCPMACToIPMapping(HBLNetworkConfigurationDB *db, uint32_t vnet, bool writeRecords) {
    const CacheChanging alone;
    db = NetCfgResolveCache(db, __func__);
    if (db == nullptr) {
        return false;
    }
    RecordFields record = {.vnet = static_cast<int32_t>(vnet)};
    TableRef table = DHCP_FAMILY.table(db, record);
    if (table.Table() == nullptr) {
        return true;
    }
    bool written = RemoveWholeTable(DHCP_FAMILY, db, table, writeRecords,
                                    {LOG_ERR, __func__, "All the DHCP mappings could not be deleted"});
    DHCP_FAMILY.dropEmptyHolder(db, record);
    return written;
}

bool HBLNetCfgRemoveAllNATPortFwd(HBLNetworkConfigurationDB *db, uint32_t vnet, bool doTcp, bool doUdp,
                                  bool writeRecords) {
    const CacheChanging alone;
    db = NetCfgResolveCache(db, __func__);
    if (db == nullptr) {
        return false;
    }
    RecordFields record = {.vnet = static_cast<int32_t>(vnet)};
    const struct {
        bool isTcp;
        bool wanted;
        const char *failure;
    } protocols[] = {
        {true, doTcp, "All the forwarded TCP ports could not be deleted"},
        {false, doUdp, "All the forwarded UDP ports could not be deleted"},
    };
    bool written = true;
    for (const auto &protocol : protocols) {
        record.isTcp = protocol.isTcp;
        TableRef table = NAT_FAMILY.table(db, record);
        if (protocol.wanted && table.Table() != nullptr &&
            !RemoveWholeTable(NAT_FAMILY, db, table, writeRecords, {LOG_WRN, __func__, protocol.failure})) {
            written = false;
        }
    }
    NAT_FAMILY.dropEmptyHolder(db, record);
    return written;
}
