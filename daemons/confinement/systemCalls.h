// Which system calls are left, by a filter in the kernel.
#pragma once

#include <span>

// Leaves these (SYS_) and what every process needs; all others fail with EPERM. A filter that is not to be
// had costs a line in the log.
void SystemCalls_Restrict(std::span<const int> allowed);

// For a foreign program, whose calls are not ours to list: refuses what no server needs and what reaches
// beyond its own memory, descriptors and files. A filter that is not to be had costs a line in the log.
void SystemCalls_RestrictForeign();
