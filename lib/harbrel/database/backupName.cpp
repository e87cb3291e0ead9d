#include <sys/stat.h>

#include <cstdint>

#include "lib/file/posix.h"
#include "lib/harbrel/database/transfer.h"
#include "lib/misc/owners.h"
#include "lib/string/str.h"

char *HBLNetCfgFreeBackupName(const char *path) {
    for (uint32_t number = 0;; number++) {
        MallocString name(Str_SafeAsprintf(nullptr, "%s.bak.%u", path, number));
        struct stat status;
        // Any other error comes up again, and is reported, when the caller makes the file.
        if (Posix_Lstat(name.get(), &status) != 0) {
            return name.release();
        }
    }
}
