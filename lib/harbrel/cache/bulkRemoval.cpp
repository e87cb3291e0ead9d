#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/defaultCache.h"
#include "lib/harbrel/cache/tableProtocol.h"

namespace {

// Frees the table and its snapshot; with `writeRecords` each record's removal line is journalled first, up to
// the first failure. False when a line could not be written.
bool RemoveWholeTable(const RecordFamily &family, HBLNetworkConfigurationDB *db, const TableRef &table,
                      bool writeRecords) {
    bool written = true;
    if (writeRecords) {
        NetCfgRecordFormatCtx context = {family.removeType, db->stream, db};
        written = HashTable_ForEach(*table.hash, NetCfgWriteRecordToConfig, &context) == 0;
    }
    FreeTable(table);
    return written;
}

}  // namespace

bool HBLNetCfgRemoveAllDHCPMACToIPMapping(HBLNetworkConfigurationDB *db, uint32_t vnet, bool writeRecords) {
    db = NetCfgResolveCache(db, __func__);
    if (db == nullptr) {
        return false;
    }
    RecordFields record = {.vnet = static_cast<int32_t>(vnet)};
    TableRef table = DHCP_FAMILY.table(db, record);
    if (table.Table() == nullptr) {
        return true;
    }
    bool written = RemoveWholeTable(DHCP_FAMILY, db, table, writeRecords);
    if (!written) {
        HBLLog(LOG_ERR, __func__, "All the DHCP mappings could not be deleted");
    }
    DHCP_FAMILY.dropEmptyHolder(db, record);
    return written;
}

bool HBLNetCfgRemoveAllNATPortFwd(HBLNetworkConfigurationDB *db, uint32_t vnet, bool doTcp, bool doUdp,
                                  bool writeRecords) {
    db = NetCfgResolveCache(db, __func__);
    if (db == nullptr) {
        return false;
    }
    const struct {
        bool wanted;
        RecordFields record;
        const char *failure;
    } tables[] = {
        {doTcp,
         {.vnet = static_cast<int32_t>(vnet), .isTcp = true},
         "All the forwarded TCP ports could not be deleted"},
        {doUdp,
         {.vnet = static_cast<int32_t>(vnet), .isTcp = false},
         "All the forwarded UDP ports could not be deleted"},
    };
    bool written = true;
    for (const auto &row : tables) {
        TableRef table = NAT_FAMILY.table(db, row.record);
        if (row.wanted && table.Table() != nullptr &&
            !RemoveWholeTable(NAT_FAMILY, db, table, writeRecords)) {
            HBLLog(LOG_WRN, __func__, "%s", row.failure);
            written = false;
        }
    }
    NAT_FAMILY.dropEmptyHolder(db, tables[0].record);
    return written;
}
