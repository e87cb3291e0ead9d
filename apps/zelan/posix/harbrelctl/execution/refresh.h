// Seeing what other programs have written to the database since it was loaded.
#pragma once

#include "apps/zelan/posix/harbrelctl/model/readHost.h"

// Makes the library look at the file again, under the database's lock. False when the lock cannot be had.
bool Refresh();
