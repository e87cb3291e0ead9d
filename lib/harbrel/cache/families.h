// The four record families of the database behind one shape, so that tables, journal, reads and formatter
// are each written once: what a record consists of, where its table is, how an entry is made, and the words
// that go with it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/cache/records.h"

// One record of any family, its texts borrowed.
struct RecordFields {
    const char *key = nullptr;    // answer's key, adapter's name or MAC address; null for a forward
    const char *value = nullptr;  // answer's value, IP or VM IP address; null for a bridge mapping
    int32_t vnet = 0;             // what a bridge mapping maps to; whose table for DHCP and NAT
    bool isTcp = false;           // from here on: forwards only
    uint16_t hostPort = 0;
    uint16_t vmPort = 0;
    const char *description = nullptr;
};

// Where a family's table for one record is. `hash` is null while there is no holder for it; `array` and
// `count` are null in a family without snapshots.
struct TableRef {
    HashTable **hash = nullptr;
    void ***array = nullptr;
    size_t *count = nullptr;

    HashTable *Table() const { return hash != nullptr ? *hash : nullptr; }
};

// Texts of the table operations; null means no message.
struct TableWords {
    FunctionLog addLog;
    const char *entryName;  // what a failed allocation was for
    const char *stringCopy;
    const char *holderName;    // the same; or else:
    const char *holderFailed;  // the whole message
    const char *keyExists;
    const char *deleteOfOld;
    const char *addFailed;
    bool tellsNewTables;
    bool tellsInserts;
    FunctionLog removeLog;
    const char *removeWithoutTable;
};

struct RecordFamily {
    uint32_t addType;     // NetCfgRecordType
    uint32_t removeType;  // NetCfgRecordType
    size_t entrySize;
    uint32_t keyFlags;  // HashTableFlags
    HashTableFreeEntryFn freeEntry;
    TableRef (*table)(HBLNetworkConfigurationDB *db, const RecordFields &record);
    bool (*makeHolder)(HBLNetworkConfigurationDB *db, const RecordFields &record);
    // Frees the holder when none of its tables is left. Null in the one family that keeps an empty table.
    void (*dropEmptyHolder)(HBLNetworkConfigurationDB *db, const RecordFields &record);
    bool (*fillEntry)(void *entry, const RecordFields &record);  // false when a text could not be copied
    RecordFields (*fieldsOf)(const void *entry);
    bool absentIsRemoved;  // removing what is not there succeeds
    TableWords words;
};

extern const RecordFamily ANSWER_FAMILY;
extern const RecordFamily BRIDGE_FAMILY;
extern const RecordFamily DHCP_FAMILY;
extern const RecordFamily NAT_FAMILY;

const RecordFamily *FamilyOfRecordType(uint32_t recordType);  // null for a number outside the grammar

inline const char *ProtocolName(bool isTcp) {
    return isTcp ? "tcp" : "udp";
}
