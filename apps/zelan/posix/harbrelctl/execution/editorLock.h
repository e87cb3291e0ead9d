// One editor at a time: from reading what is to be changed until the change is carried out. Programs that use
// the library in other ways are kept apart by the database's own lock, change by change.
#pragma once

#include "lib/misc/owners.h"

class EditorLock {
  public:
    // Waits some ten seconds for another editor.
    EditorLock();
    bool Held() const { return static_cast<bool>(file_); }

  private:
    FileDescriptor file_;
};
