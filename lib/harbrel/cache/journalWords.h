// What the journalled changes say in the log when a step fails, and under which names.
#pragma once

#include <cstdint>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/families.h"

enum class JournalStep : uint8_t {
    AddAllocation,
    AddTable,
    AddRemovalLine,
    AddAddLine,
    RestoreOld,  // undoing a replacement failed
    RemoveNew,   // undoing the addition of a new record failed
    RemoveAllocation,
    RemoveTable,
    RemoveFile,
    RemovePutBack,
};

// Where the values of a message come from. The pointers only show which block was missing.
struct JournalDetails {
    RecordFields record;
    int errorNumber = 0;
    const void *addLine = nullptr;
    const void *removeLine = nullptr;
    const void *oldValue = nullptr;
};

struct JournalWords {
    FunctionLog addLog;
    FunctionLog removeLog;
    bool equalIsNoChange;       // a record that is there already is not journalled again
    const char *removalFailed;  // closes a failed removal; may be null
    // Writes the step's message at LOG_ERR.
    void (*tell)(FunctionLog log, JournalStep step, const JournalDetails &details);
};

extern const JournalWords ANSWER_JOURNAL_WORDS;
extern const JournalWords BRIDGE_JOURNAL_WORDS;
extern const JournalWords DHCP_JOURNAL_WORDS;
extern const JournalWords NAT_JOURNAL_WORDS;

// Writes the step's message under the name of the change that it belongs to.
void TellJournalStep(const JournalWords &words, JournalStep step, const JournalDetails &details);
