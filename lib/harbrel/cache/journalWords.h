// What the journalled changes say in the log when a step fails: one row of texts for each family.
#pragma once

#include <cstdint>

#include "lib/harbrel/cache/families.h"

enum JournalStep : uint8_t {
    JOURNAL_ADD_ALLOCATION,
    JOURNAL_ADD_TABLE,
    JOURNAL_ADD_REMOVAL_LINE,
    JOURNAL_ADD_ADD_LINE,
    JOURNAL_RESTORE_OLD,  // undoing a replacement failed
    JOURNAL_REMOVE_NEW,   // undoing the addition of a new record failed
    JOURNAL_REMOVE_ALLOCATION,
    JOURNAL_REMOVE_TABLE,
    JOURNAL_REMOVE_FILE,
    JOURNAL_REMOVE_PUT_BACK,
    JOURNAL_STEP_COUNT,
};

// What a conversion of a message stands for.
enum class JournalField : uint8_t {
    NONE,
    KEY,
    VALUE,
    VNET,
    PROTOCOL,
    HOST_PORT,
    VM_PORT,
    DESCRIPTION,
    ERROR_TEXT,
    ADD_LINE,
    REMOVE_LINE,
    OLD_VALUE,
};

struct JournalMessage {
    const char *format;
    JournalField fields[6];  // one for each conversion, in order
};

struct JournalWords {
    const char *addFunction;
    const char *removeFunction;
    const char *unchanged;  // an equal mapping is no change: gets vnet and key; null: it is journalled again
    const char *removalFailed;  // closes a failed removal; may be null
    JournalMessage steps[JOURNAL_STEP_COUNT];
};

extern const JournalWords ANSWER_JOURNAL_WORDS;
extern const JournalWords BRIDGE_JOURNAL_WORDS;
extern const JournalWords DHCP_JOURNAL_WORDS;
extern const JournalWords NAT_JOURNAL_WORDS;

// Where the values of a message come from. The pointers only show which block was missing.
struct JournalDetails {
    RecordFields record;
    int errorNumber = 0;
    const void *addLine = nullptr;
    const void *removeLine = nullptr;
    const void *oldValue = nullptr;
};

// Writes the step's message at LOG_ERR under the function of the change.
void TellJournalStep(const JournalWords &words, JournalStep step, const JournalDetails &details);
