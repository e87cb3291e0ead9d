// Several records as one change: all are written or none.
//
// Before the first one is written, the way back is put into a file beside the database and to the disk; it
// goes when the last one is written. A refusal takes back what was written. A process that was killed in
// between leaves the file, and the next editor takes the change back before it does anything else.
#pragma once

#include <string>
#include <vector>

#include "apps/zelan/posix/harbrelctl/plan/records.h"

// The editor's lock is held. False with the reason; nothing is changed then, unless the reason says
// otherwise.
bool Commit(const std::vector<RecordChange> &changes, const std::string &log, std::string *reason);

// Whether a killed editor has left a change half done.
bool IsInterrupted();
// Takes it back. False with the reason.
bool Recover(const std::string &log, std::string *reason);
