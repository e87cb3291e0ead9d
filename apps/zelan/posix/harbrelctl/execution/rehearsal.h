// A change tried out by the library itself, without a trace: in a child process whose configuration folder,
// PID files and log are copies in memory. It shows what the library accepts and what the generated files will
// be, down to text that people have added to them.
#pragma once

#include <string>
#include <vector>

#include "apps/zelan/posix/harbrelctl/plan/plan.h"

struct Rehearsal {
    Config reached;                                 // what is configured afterwards
    std::vector<FileChange> files;                  // that differ from those on the disk
    std::vector<std::pair<int, StaleFiles>> stale;  // the same by network
};

// Of the changes, and of writing the files of these networks. False with the reason, which is the library's
// when it refuses something.
bool Rehearse(const Host &host, const std::vector<RecordChange> &changes, const std::vector<int> &networks,
              Rehearsal *rehearsal, std::string *reason);
// Of an import, and of writing the files of all networks that have any.
bool RehearseImport(const Host &host, const std::string &settingsFile, Rehearsal *rehearsal,
                    std::string *reason);
