// Which files and TCP ports stay within reach, by Landlock, and where it knows how, that no other process of
// the same user can be sent a signal.
#pragma once

#include "daemons/confinement/confinement.h"

// Restricts the calling process. What the kernel lacks, in whole or in part, costs a line in the log.
void FileAccess_Restrict(const Confinement &confinement);
