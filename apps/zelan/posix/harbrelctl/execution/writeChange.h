// One record through the library.
#pragma once

#include "apps/zelan/posix/harbrelctl/plan/records.h"

// Adds, replaces or removes it, as `after` says. False when the library refuses; its log has the reason.
bool WriteChange(const RecordChange &change);

// The way back.
RecordChange Inverse(const RecordChange &change);
