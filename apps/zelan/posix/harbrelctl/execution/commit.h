// Several records as one change: all are written or none.
//
// Before the first one is written, the way back is put into a file beside the database and to the disk; it
// goes when the last one is written. A refusal takes back what was written. A process that was killed in
// between leaves the file, and the next editor takes the change back before it does anything else.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "apps/zelan/posix/harbrelctl/plan/records.h"

// The editor's lock is held. False with the reason; nothing is changed then, unless the reason says
// otherwise.
bool Commit(const std::vector<RecordChange> &changes, const std::string &log, std::string *reason);

// The same for changes that `write` makes in its own way; false when it has not made them all.
using WriteInOwnWay = std::function<bool(std::string *reason)>;
bool CommitBy(const std::vector<RecordChange> &changes, const WriteInOwnWay &write, std::string *reason);
// Whether the database is as the changes make it.
bool AreMade(const std::vector<RecordChange> &changes);

// Whether a killed editor has left a change half done.
bool IsInterrupted();
// Takes it back. False with the reason.
bool Recover(std::string *reason);
