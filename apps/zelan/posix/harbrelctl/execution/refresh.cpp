#include "apps/zelan/posix/harbrelctl/execution/refresh.h"

#include <unistd.h>

#include "apps/zelan/posix/harbrelctl/model/library.h"
#include "lib/harbrel/harbrel.h"

// An export is the one call that takes the lock, looks at the file for it, and changes nothing.
bool Refresh() {
    const QuietLog quiet;
    const std::string path = "/run/harbrelctl." + std::to_string(getpid());
    const bool done = HBL_ExportDatabaseToFile(path.c_str());
    unlink(path.c_str());
    return done;
}
