#include "lib/harbrel/cache/journal.h"

#include <cerrno>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cacheGuard.h"
#include "lib/harbrel/cache/defaultCache.h"
#include "lib/harbrel/cache/formatter.h"
#include "lib/harbrel/cache/journalFile.h"
#include "lib/harbrel/cache/tableProtocol.h"
#include "lib/misc/owners.h"

namespace {

std::optional<std::string> OwnText(const char *text) {
    return text != nullptr ? std::optional<std::string>(text) : std::nullopt;
}

const char *TextOf(const std::optional<std::string> &text) {
    return text.has_value() ? text->c_str() : nullptr;
}

struct ChangeLines {
    MallocString add;
    MallocString remove;  // null when there is nothing to replace
};

bool Append(HBLNetworkConfigurationDB *db, const MallocString &line, JournalDetails *details) {
    if (NetCfgAppendLine(db, line.get())) {
        return true;
    }
    details->errorNumber = errno;
    return false;
}

bool Refused(FunctionLog log, const char *reason) {
    if (reason != nullptr) {
        log(LOG_ERR, "Record refused, it could not be read back: %s", reason);
    }
    return reason != nullptr;
}

// The removal line comes before the add line, so that a replay that stops between them has lost the record
// but never holds two.
bool ApplyAdd(const JournalFamily &family, HBLNetworkConfigurationDB *db, const RecordFields &record,
              const ChangeLines &lines) {
    JournalDetails details = {.record = record};
    if (!AddToTable(*family.records, db, record)) {
        TellJournalStep(*family.words, JournalStep::AddTable, details);
        return false;
    }
    if (lines.remove != nullptr && !Append(db, lines.remove, &details)) {
        TellJournalStep(*family.words, JournalStep::AddRemovalLine, details);
        return false;
    }
    if (!NetCfgStaysInMemory(family.records->addType, record) && !Append(db, lines.add, &details)) {
        TellJournalStep(*family.words, JournalStep::AddAddLine, details);
        return false;
    }
    return true;
}

// Through the same operations, so that what reached the file is taken back there too.
void UndoAdd(const JournalFamily &family, HBLNetworkConfigurationDB *db, const RecordFields &record,
             const std::optional<OwnedRecord> &old) {
    if (old.has_value()) {
        if (!JournalledAdd(family, db, old->Fields(), true)) {
            TellJournalStep(*family.words, JournalStep::RestoreOld, {.record = old->Fields()});
        }
    } else if (!JournalledRemove(family, db, record)) {
        TellJournalStep(*family.words, JournalStep::RemoveNew, {.record = record});
    }
}

}  // namespace

OwnedRecord::OwnedRecord(const RecordFields &record)
    : numbers_(record),
      key_(OwnText(record.key)),
      value_(OwnText(record.value)),
      description_(OwnText(record.description)) {}

RecordFields OwnedRecord::Fields() const {
    RecordFields fields = numbers_;
    fields.key = TextOf(key_);
    fields.value = TextOf(value_);
    fields.description = TextOf(description_);
    return fields;
}

bool JournalledAdd(const JournalFamily &family, HBLNetworkConfigurationDB *db, const RecordFields &wanted,
                   bool isRollback) {
    const CacheChanging alone;
    const JournalWords &words = *family.words;
    const RecordFamily &records = *family.records;
    db = NetCfgResolveCache(db, words.addLog);
    if (db == nullptr) {
        return false;
    }
    const OwnedRecord own(wanted);
    const RecordFields record = own.Fields();
    const std::optional<OwnedRecord> old = family.lookup(records, db, record);
    if (old.has_value() && words.equalIsNoChange && old->Fields().vnet == record.vnet) {
        words.addLog(LOG_INFO2, "New and old value vnet in the configuration are same: %d for adapter: %s",
                     record.vnet, record.key);
        return true;
    }
    ChangeLines lines;
    lines.add.reset(NetCfgFormatRecord(records.addType, record));
    lines.remove.reset(old.has_value() ? NetCfgFormatRecord(records.removeType, record) : nullptr);
    if (lines.add == nullptr || (old.has_value() && lines.remove == nullptr)) {
        TellJournalStep(words, JournalStep::AddAllocation,
                        {.record = record,
                         .addLine = lines.add.get(),
                         .removeLine = lines.remove.get(),
                         .oldValue = old.has_value() ? old->Fields().value : nullptr});
        return false;
    }
    if (!isRollback && Refused(words.addLog, NetCfgWhyUnreadable(records.addType, record, lines.add.get()))) {
        return false;
    }
    if (ApplyAdd(family, db, record, lines)) {
        return true;
    }
    if (!isRollback) {
        UndoAdd(family, db, record, old);
    }
    return false;
}

bool JournalledRemove(const JournalFamily &family, HBLNetworkConfigurationDB *db,
                      const RecordFields &wanted) {
    const CacheChanging alone;
    const JournalWords &words = *family.words;
    db = NetCfgResolveCache(db, words.removeLog);
    if (db == nullptr) {
        return false;
    }
    const OwnedRecord own(wanted);
    const RecordFields record = own.Fields();
    const std::optional<OwnedRecord> old = family.lookup(*family.records, db, record);
    if (!old.has_value()) {
        return family.records->absentIsRemoved;
    }
    JournalDetails details = {.record = record};
    MallocString line(NetCfgFormatRecord(family.records->removeType, record));
    if (line == nullptr) {
        details.errorNumber = errno;
        details.oldValue = old->Fields().value;
        TellJournalStep(words, JournalStep::RemoveAllocation, details);
        return false;
    }
    if (Refused(words.removeLog, NetCfgWhyUnreadableLine(line.get()))) {
        return false;
    }
    bool removed = RemoveFromTable(*family.records, db, record);
    if (removed && Append(db, line, &details)) {
        return true;
    }
    TellJournalStep(words, removed ? JournalStep::RemoveFile : JournalStep::RemoveTable, details);
    if (!AddToTable(*family.records, db, old->Fields())) {
        TellJournalStep(words, JournalStep::RemovePutBack, {.record = old->Fields()});
    }
    if (words.removalFailed != nullptr) {
        words.removeLog(LOG_ERR, "%s", words.removalFailed);
    }
    return false;
}
