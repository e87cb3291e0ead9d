// The one protocol of journalled changes: table first, then file, and back again when the file refuses.
#pragma once

#include <optional>
#include <string>

#include "lib/harbrel/cache/families.h"
#include "lib/harbrel/cache/journalWords.h"

// A record with texts of its own. A change frees the texts of the entry that it replaces, and a caller may
// well have passed those very texts.
class OwnedRecord {
  public:
    explicit OwnedRecord(const RecordFields &record);
    RecordFields Fields() const;

  private:
    RecordFields numbers_;
    std::optional<std::string> key_;
    std::optional<std::string> value_;
    std::optional<std::string> description_;
};

struct JournalFamily {
    const RecordFamily *records;
    const JournalWords *words;
    // The record that is there under the same key.
    std::optional<OwnedRecord> (*lookup)(const RecordFamily &records, HBLNetworkConfigurationDB *db,
                                         const RecordFields &record);
};

// Both take the default cache when `db` is null. False when the record could not be changed in the table and
// in the file; the reason is logged under the family's function.

// Adds or replaces. With `isRollback` nothing is undone on failure and nothing refused: it is the undo
// itself.
bool JournalledAdd(const JournalFamily &family, HBLNetworkConfigurationDB *db, const RecordFields &wanted,
                   bool isRollback);
bool JournalledRemove(const JournalFamily &family, HBLNetworkConfigurationDB *db, const RecordFields &wanted);
