#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "lib/err/errText.h"
#include "lib/file/posix.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/records.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/files/files.h"
#include "lib/misc/hashTable.h"
#include "lib/misc/owners.h"

namespace {

constexpr const char *WRITE_DATABASE = "NetCfgWriteDatabaseFile";

using EntryOrder = bool (*)(const void *left, const void *right);

bool ByKey(const void *left, const void *right) {
    return strcmp(static_cast<const NetworkConfigDictionaryEntry *>(left)->key,
                  static_cast<const NetworkConfigDictionaryEntry *>(right)->key) < 0;
}

bool ByHostPort(const void *left, const void *right) {
    return static_cast<const NATPortFwdEntry *>(left)->hostPort <
           static_cast<const NATPortFwdEntry *>(right)->hostPort;
}

bool ByVnetAndAdapter(const void *left, const void *right) {
    const auto *a = static_cast<const BridgeMappingEntry *>(left);
    const auto *b = static_cast<const BridgeMappingEntry *>(right);
    return a->vnet != b->vnet ? a->vnet < b->vnet : strcmp(a->adapter, b->adapter) < 0;
}

// The entries of all tables of one record type, in the order of the file.
struct RecordGroup {
    uint32_t recordType;
    std::vector<void *> entries;
};

// Puts a table's entries behind those already taken, in the given order, or with none in that of the table.
bool TakeTable(RecordGroup *group, const HashTable *table, EntryOrder order) {
    if (table == nullptr || HashTable_GetNumElements(table) == 0) {
        return true;
    }
    void **array = nullptr;
    size_t count = 0;
    HashTable_ToArray(table, &array, &count);
    const MallocBlock<void *> owner(array);
    if (array == nullptr) {
        HBLLog(LOG_ERR, WRITE_DATABASE, "Failed to create array of records of type: %u", group->recordType);
        return false;
    }
    if (order != nullptr) {
        std::sort(array, array + count, order);
    }
    group->entries.insert(group->entries.end(), array, array + count);
    return true;
}

bool WriteGroup(const RecordGroup &group, FILE *stream) {
    if (group.entries.empty()) {
        return true;
    }
    NetCfgRecordFormatCtx context = {group.recordType, stream};
    for (void *entry : group.entries) {
        if (NetCfgWriteRecordToConfig(nullptr, entry, &context) != 0) {
            HBLLog(LOG_ERR, WRITE_DATABASE, "Failed to write record of type: %u to  database file",
                   group.recordType);
            return false;
        }
    }
    HBLLog(LOG_INFO, WRITE_DATABASE, "Records of type: %u, count %zu written to database file",
           group.recordType, group.entries.size());
    return true;
}

bool WriteAnswers(const HBLNetworkConfigurationDB *db, FILE *stream) {
    RecordGroup group = {NETCFG_REC_ANSWER, {}};
    return TakeTable(&group, db->dictHash, ByKey) && WriteGroup(group, stream);
}

bool WriteNATForwards(const HBLNetworkConfigurationDB *db, FILE *stream) {
    RecordGroup group = {NETCFG_REC_ADD_NAT_PORTFWD, {}};
    for (const NATVnetPortFwdConfig *config : db->natConfig) {
        if (config != nullptr && (!TakeTable(&group, config->tcpHash, ByHostPort) ||
                                  !TakeTable(&group, config->udpHash, ByHostPort))) {
            return false;
        }
    }
    return WriteGroup(group, stream);
}

bool WriteDHCPMappings(const HBLNetworkConfigurationDB *db, FILE *stream) {
    RecordGroup group = {NETCFG_REC_ADD_DHCP_MAC_TO_IP, {}};
    for (const DHCPMACToIPConfig *config : db->dhcpConfig) {
        if (config != nullptr && !TakeTable(&group, config->hash, nullptr)) {
            return false;
        }
    }
    return WriteGroup(group, stream);
}

bool WriteBridgeMappings(const HBLNetworkConfigurationDB *db, FILE *stream) {
    RecordGroup group = {NETCFG_REC_ADD_BRIDGE_MAPPING, {}};
    return TakeTable(&group, db->bridgeHash, ByVnetAndAdapter) && WriteGroup(group, stream);
}

// Appends all records to the file that holds the version line. True when they have reached the file.
bool AppendRecords(const HBLNetworkConfigurationDB *db, const char *path) {
    FILE *const stream = HBLFopenRegular(path, "a");
    if (stream == nullptr) {
        HBLLog(LOG_ERR, WRITE_DATABASE, "Failed to open database file for writing, error: %s",
               Err_ErrnoText(errno));
        return false;
    }
    const bool written = WriteAnswers(db, stream) && WriteNATForwards(db, stream) &&
                         WriteDHCPMappings(db, stream) && WriteBridgeMappings(db, stream);
    const bool closed = fclose(stream) == 0;
    if (written && !closed) {
        HBLLog(LOG_ERR, WRITE_DATABASE, "Failed to finish database file: %s, error: %s", path,
               Err_ErrnoText(errno));
    }
    return written && closed;
}

// Writes the version line; true when it has reached the file.
bool WriteVersionLine(FILE *stream, bool isBackup) {
    const char *const key = isBackup ? NETCFG_BACKUP_VERSION_KEY : NETCFG_VERSION_KEY;
    return fprintf(stream, NETCFG_VERSION_FORMAT, key, NETCFG_MAJOR_VERSION, NETCFG_MINOR_VERSION) > 0 &&
           fflush(stream) == 0;
}

// A FIFO, a device or a folder; it is not ours to write to or to remove.
bool StandsInTheWay(const char *path) {
    struct stat status;
    return Posix_Stat(path, &status) == 0 && !S_ISREG(status.st_mode);
}

}  // namespace

bool HBLNetCfgCreateDB(const char *path, bool isBackup) {
    if (StandsInTheWay(path)) {
        HBLLog(LOG_ERR, __func__, "Failed to create file: %s, what stands there is no regular file", path);
        return false;
    }
    if (!HBLCreateFile(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, path)) {
        HBLLog(LOG_ERR, __func__, "Failed to create file: %s", path);
        return false;
    }
    FileStream stream(HBLFopenRegular(path, "w"));
    if (stream == nullptr) {
        HBLLog(LOG_ERR, __func__, "Failed to open file: %s, error: %s", path, Err_ErrnoText(errno));
        HBLRemoveFile(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, path);
        return false;
    }
    if (!WriteVersionLine(stream.get(), isBackup)) {
        HBLLog(LOG_ERR, __func__, "Failed to write intialization data into file: %serror: %s", path,
               Err_ErrnoText(errno));
        stream.reset();
        HBLRemoveFile(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, path);
        return false;
    }
    HBLLog(LOG_INFO2, __func__, "Created and initialized database %sfile: %s", isBackup ? "backup " : "",
           path);
    return true;
}

bool NetCfgWriteDatabaseFile(HBLNetworkConfigurationDB *db, const char *path, bool isBackup) {
    if (!HBLNetCfgCreateDB(path, isBackup)) {
        // Without its version line the file is no database, however well the records might be written.
        HBLLog(LOG_ERR, __func__, "Failed to create/initialize database %sfile: %s",
               isBackup ? "backup " : "", path);
        return false;
    }
    const bool written = AppendRecords(db, path);
    if (!written) {
        HBLRemoveFile(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, path);
    }
    return written;
}
