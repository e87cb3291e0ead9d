#include "lib/harbrel/database/exchange.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "lib/err/errText.h"
#include "lib/file/posix.h"
#include "lib/harbrel/files/files.h"
#include "lib/harbrel/files/sync.h"
#include "lib/string/str.h"

namespace {

MallocString FreeBackupName(const char *path) {
    for (uint32_t number = 0;; number++) {
        MallocString name(Str_SafeAsprintf(nullptr, "%s.bak.%u", path, number));
        struct stat status;
        // Any other error comes up again, and is reported, when the file is made.
        if (Posix_Lstat(name.get(), &status) != 0) {
            return name;
        }
    }
}

// False, with errno, for anything but a regular file.
bool IsRegular(const char *path) {
    struct stat status;
    if (Posix_Stat(path, &status) != 0) {
        return false;
    }
    errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return S_ISREG(status.st_mode);
}

// By way of a third name, because a link does not take the place of the empty file at `name`.
bool LinkTo(const char *path, const char *name) {
    const MallocString third(Str_SafeAsprintf(nullptr, "%s.new", name));
    if (Posix_Link(path, third.get()) != 0) {
        return false;
    }
    if (Posix_Rename(third.get(), name) != 0) {
        Posix_Unlink(third.get());
        return false;
    }
    return true;
}

}  // namespace

NetCfgKeepResult NetCfgKeepFormer(FunctionLog log, const char *path, NetCfgFormer *former) {
    former->name = FreeBackupName(path);
    const char *const name = former->name.get();
    if (!HBLCreateFile(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, name)) {
        return NetCfgKeepResult::NoName;
    }
    if (!IsRegular(path)) {
        return NetCfgKeepResult::Failed;
    }
    former->isLink = LinkTo(path, name);
    former->kept = former->isLink || Posix_Rename(path, name) == 0;
    if (!former->kept) {
        return NetCfgKeepResult::Failed;
    }
    log(LOG_INFO, "Renamed database file: %s to: %s", path, name);
    // Before anything takes its place. A journal is not on the disk yet.
    HBLSyncFile(name);
    HBLSyncFolderOf(name);
    return NetCfgKeepResult::Kept;
}

bool NetCfgRestoreFormer(FunctionLog log, const NetCfgFormer &former, const char *path, bool exchanged) {
    const bool restored = former.isLink && !exchanged ? Posix_Unlink(former.name.get()) == 0
                                                      : Posix_Rename(former.name.get(), path) == 0;
    if (restored) {
        log(LOG_INFO, "Restored database file during error handling");
    } else {
        log(LOG_ERR, "Failed to restore database file during error handling from: %s to %s",
            former.name.get(), path);
    }
    return restored;
}

bool NetCfgPutInPlace(FunctionLog log, const char *path, const std::function<bool(const char *)> &write) {
    const char *const slash = strrchr(path, '/');
    const int folderLength = slash != nullptr ? static_cast<int>(slash + 1 - path) : 0;
    const MallocString temporary(Str_SafeAsprintf(nullptr, "%.*s.networking.XXXXXX", folderLength, path));
    const FileDescriptor reserved(mkostemp(temporary.get(), O_CLOEXEC));
    if (!reserved) {
        log(LOG_ERR, "Failed to create file: %s, error: %s", temporary.get(), Err_ErrnoText(errno));
        return false;
    }
    // Made anew by the writer, because a database that was not rewritten yet has that one's mode.
    Posix_Unlink(temporary.get());
    if (!write(temporary.get())) {
        return false;
    }
    if (!HBLSyncFile(temporary.get()) || Posix_Rename(temporary.get(), path) != 0) {
        log(LOG_ERR, "Failed to put file: %s in place, error: %s", temporary.get(), Err_ErrnoText(errno));
        Posix_Unlink(temporary.get());
        return false;
    }
    HBLSyncFolderOf(path);
    return true;
}
