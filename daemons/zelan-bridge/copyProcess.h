// The process that copies frames between TAPs and adapters, without privileges.
#pragma once

#include "lib/misc/owners.h"

// Runs in a process of its own, until the other end of the socket for its orders is closed. Gives up all that
// it has inherited but that and the log.
[[noreturn]] void CopyProcess_Run(FileDescriptor orders);
