// What can be done with a family's tables, written once for all families: finding, adding, removing,
// snapshots. No journal, no default cache.
#pragma once

#include "lib/harbrel/cache/families.h"

// The record's entry, or null.
void *FindEntry(const RecordFamily &family, HBLNetworkConfigurationDB *db, const RecordFields &record);
// Adds or replaces; tables and holders on the way are made. A failure leaves no useless table behind.
bool AddToTable(const RecordFamily &family, HBLNetworkConfigurationDB *db, const RecordFields &record);
bool RemoveFromTable(const RecordFamily &family, HBLNetworkConfigurationDB *db, const RecordFields &record);

// Builds the snapshot unless it is there; missing when it cannot be built, also for an empty table. Several
// readers may come at once.
enum class Snapshot { Missing, Built, Present };
Snapshot EnsureSnapshot(const TableRef &table);
// Frees table and snapshot and clears their places.
void FreeTable(const TableRef &table);
