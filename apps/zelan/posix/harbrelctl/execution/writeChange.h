// Records through the library.
#pragma once

#include <string>
#include <vector>

#include "apps/zelan/posix/harbrelctl/plan/records.h"

// Adds, replaces or removes each, as its `after` says, up to the first that the library refuses. False with
// the words that it has for that in its log.
bool WriteChanges(std::vector<RecordChange> changes, const std::string &log, std::string *reason);

// The way back.
RecordChange Inverse(const RecordChange &change);
