#include "lib/harbrel/cache/tableProtocol.h"

#include <cerrno>
#include <cstdlib>
#include <mutex>

#include "lib/err/errText.h"
#include "lib/harbrel/base/hblLog.h"

namespace {

// The key under which the table holds the record; borrows its text.
const void *TableKey(const RecordFamily &family, const RecordFields &record) {
    return family.keyFlags == HASH_INT_KEY ? HashTable_IntKey(record.hostPort) : record.key;
}

void DropSnapshot(const TableRef &table) {
    if (table.array != nullptr) {
        free(*table.array);
        *table.array = nullptr;
        *table.count = 0;
    }
}

void TellAllocation(FunctionLog log, const char *name) {
    if (name != nullptr) {
        log(LOG_ERR, "Failed to allocate memory for %s, error: %s", name, Err_ErrnoText(errno));
    }
}

void Tell(FunctionLog log, uint32_t level, const char *text) {
    if (text != nullptr) {
        log(level, "%s", text);
    }
}

void *NewEntry(const RecordFamily &family, const RecordFields &record) {
    void *entry = calloc(1, family.entrySize);
    if (entry == nullptr) {
        TellAllocation(family.words.addLog, family.words.entryName);
        return nullptr;
    }
    if (!family.fillEntry(entry, record)) {
        Tell(family.words.addLog, LOG_ERR, family.words.stringCopy);
        family.freeEntry(entry);
        return nullptr;
    }
    return entry;
}

// The record's table, made with its holder when missing; null when that fails.
HashTable *MakeTable(const RecordFamily &family, HBLNetworkConfigurationDB *db, const RecordFields &record) {
    if (!family.makeHolder(db, record)) {
        TellAllocation(family.words.addLog, family.words.holderName);
        Tell(family.words.addLog, LOG_ERR, family.words.holderFailed);
        return nullptr;
    }
    HashTable **table = family.table(db, record).hash;
    if (*table == nullptr) {
        *table = HashTable_Alloc(NETCFG_HASH_BUCKETS, family.keyFlags, family.freeEntry);
        if (family.words.tellsNewTables) {
            family.words.addLog(LOG_INFO2, "Allocated hash table for zelan: %d", record.vnet);
        }
    }
    return *table;
}

// `key` lies in `entry`; an older entry under the same key is freed.
bool InsertOrReplace(const TableWords &words, HashTable *table, const void *key, void *entry) {
    if (HashTable_Insert(table, key, entry)) {
        return true;
    }
    Tell(words.addLog, LOG_INFO2, words.keyExists);
    if (!HashTable_Delete(table, key)) {
        Tell(words.addLog, LOG_ERR, words.deleteOfOld);
        return false;
    }
    return HashTable_Insert(table, key, entry);
}

void DropUseless(const RecordFamily &family, HBLNetworkConfigurationDB *db, const RecordFields &record) {
    if (family.dropEmptyHolder == nullptr) {
        return;
    }
    TableRef table = family.table(db, record);
    if (table.Table() != nullptr && HashTable_GetNumElements(table.Table()) == 0) {
        FreeTable(table);
    }
    family.dropEmptyHolder(db, record);
}

}  // namespace

void *FindEntry(const RecordFamily &family, HBLNetworkConfigurationDB *db, const RecordFields &record) {
    HashTable *table = family.table(db, record).Table();
    void *entry = nullptr;
    if (table == nullptr || !HashTable_Lookup(table, TableKey(family, record), &entry)) {
        return nullptr;
    }
    return entry;
}

// Adds or replaces. The snapshot goes first: it points to entries that may be freed here.
bool AddToTable(const RecordFamily &family, HBLNetworkConfigurationDB *db, const RecordFields &record) {
    const TableWords &words = family.words;
    DropSnapshot(family.table(db, record));
    void *entry = NewEntry(family, record);
    if (entry != nullptr) {
        RecordFields own = family.fieldsOf(entry);
        HashTable *table = MakeTable(family, db, record);
        if (table != nullptr && InsertOrReplace(words, table, TableKey(family, own), entry)) {
            if (words.tellsInserts) {
                words.addLog(LOG_INFO2, "Inserted Bridge mapping entry: %p, key: %s, into hash table: %p",
                             entry, own.key, static_cast<void *>(table));
            }
            return true;
        }
        family.freeEntry(entry);
    }
    DropUseless(family, db, record);
    Tell(words.addLog, LOG_ERR, words.addFailed);
    return false;
}

bool RemoveFromTable(const RecordFamily &family, HBLNetworkConfigurationDB *db, const RecordFields &record) {
    TableRef table = family.table(db, record);
    if (table.Table() == nullptr) {
        Tell(family.words.removeLog, LOG_ERR, family.words.removeWithoutTable);
        return family.absentIsRemoved;
    }
    DropSnapshot(table);
    return HashTable_Delete(table.Table(), TableKey(family, record)) || family.absentIsRemoved;
}

Snapshot EnsureSnapshot(const TableRef &table) {
    static std::mutex building;  // readers share the cache's guard
    const std::lock_guard hold(building);
    if (*table.array != nullptr) {
        return Snapshot::Present;
    }
    HashTable_ToArray(*table.hash, table.array, table.count);
    return *table.array != nullptr ? Snapshot::Built : Snapshot::Missing;
}

void FreeTable(const TableRef &table) {
    DropSnapshot(table);
    HashTable_Free(*table.hash);
    *table.hash = nullptr;
}
