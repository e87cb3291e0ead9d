#include <sys/stat.h>

#include <cerrno>
#include <mutex>
#include <optional>

#include "lib/err/errText.h"
#include "lib/file/fileLockInternal.h"
#include "lib/file/posix.h"
#include "lib/log/log.h"
#include "lib/misc/tt800.h"
#include "lib/string/str.h"

namespace {

constexpr mode_t LOCK_DIRECTORY_MODE = 0777;

enum class LockPlace { Ready, StartOver, Failed };

struct EntryState {
    std::mutex generatorMutex;
    std::optional<Tt800> generator;
    std::string generatorOwner;  // execution id; another one after a fork, which makes its own generator
    std::mutex umaskMutex;       // two threads that swap the umask at once would lose the process's own
};

EntryState entryState;

uint32_t SumOfSignedCharacters(const char *text) {
    uint32_t sum = 0;
    for (; *text != '\0'; text++) {
        sum += static_cast<uint32_t>(static_cast<signed char>(*text));
    }
    return sum;
}

unsigned DrawEntryNumber(const char *machineID, const char *executionID) {
    const std::lock_guard guard(entryState.generatorMutex);
    if (!entryState.generator || entryState.generatorOwner != executionID) {
        entryState.generatorOwner = executionID;
        entryState.generator.emplace(SumOfSignedCharacters(machineID) + SumOfSignedCharacters(executionID));
    }
    return (entryState.generator->Next() >> 8) & 0xFFFF;
}

// Open to everyone whatever the umask: any user's process may have to work on the lock.
int MakeLockDirectory(const char *path) {
    const std::lock_guard guard(entryState.umaskMutex);
    const mode_t formerMask = umask(0);
    const int error = Posix_Mkdir(path, LOCK_DIRECTORY_MODE) == 0 ? 0 : errno;
    umask(formerMask);
    return error;
}

LockPlace RemoveForeignObject(const char *lockDir, const char *function, int *error) {
    if (Posix_Unlink(lockDir) == 0) {
        return LockPlace::StartOver;
    }
    Warning("FILE: %s: '%s' exists and is not a directory.\n", function, lockDir);
    *error = ENOTDIR;
    return LockPlace::Failed;
}

LockPlace MakeMissingLockDirectory(const char *lockDir, const char *function, int *error) {
    *error = MakeLockDirectory(lockDir);
    if (*error != 0 && *error != EEXIST) {
        Warning("FILE: %s creation failure on '%s': %s\n", function, lockDir, Err_ErrnoText(*error));
        return LockPlace::Failed;
    }
    *error = 0;
    return LockPlace::Ready;
}

LockPlace PrepareLockDirectory(const char *lockDir, const char *function, int *error) {
    struct stat status;
    // A link is a foreign object wherever it leads: the scan deletes what is no lock file, and whoever may
    // write beside a backup in /tmp could have that done to any folder.
    if (Posix_Lstat(lockDir, &status) != 0) {
        *error = errno;
        if (*error == ENOENT) {
            return MakeMissingLockDirectory(lockDir, function, error);
        }
        Warning("FILE: %s stat failure on '%s': %s\n", function, lockDir, Err_ErrnoText(*error));
        return LockPlace::Failed;
    }
    if (S_ISDIR(status.st_mode)) {
        return LockPlace::Ready;
    }
    if (S_ISREG(status.st_mode)) {
        Log("FILE: %s: '%s' exists; an old style lock file?\n", function, lockDir);
        *error = EAGAIN;
        return LockPlace::Failed;
    }
    return RemoveForeignObject(lockDir, function, error);
}

FileLockEntry EntryForNumber(const char *lockDir, unsigned number) {
    char name[16];
    const std::string folder = std::string(lockDir) + "/";
    FileLockEntry entry;
    Str_Sprintf(name, sizeof name, "D%05u%s", number, FILE_LOCK_SUFFIX);
    entry.directoryPath = folder + name;
    Str_Sprintf(name, sizeof name, "E%05u%s", number, FILE_LOCK_SUFFIX);
    entry.filePath = folder + name;
    Str_Sprintf(name, sizeof name, "M%05u%s", number, FILE_LOCK_SUFFIX);
    entry.memberPath = folder + name;
    entry.memberName = name;
    return entry;
}

bool MemberIsFree(const FileLockEntry &entry) {
    struct stat status;
    return Posix_Stat(entry.memberPath.c_str(), &status) != 0 && errno == ENOENT;
}

}  // namespace

int CreateEntryDirectory(const char *machineID, const char *executionID, const char *lockDir,
                         FileLockEntry *entry) {
    for (;;) {
        int error = 0;
        const LockPlace place = PrepareLockDirectory(lockDir, __func__, &error);
        if (place == LockPlace::Failed) {
            return error;
        }
        if (place == LockPlace::StartOver) {
            continue;
        }
        *entry = EntryForNumber(lockDir, DrawEntryNumber(machineID, executionID));
        error = MakeLockDirectory(entry->directoryPath.c_str());
        if (error == EEXIST || error == ENOENT) {
            continue;
        }
        if (error != 0) {
            Warning("FILE: %s creation failure on '%s': %s\n", __func__, entry->directoryPath.c_str(),
                    Err_ErrnoText(error));
            return error;
        }
        if (MemberIsFree(*entry)) {
            return 0;
        }
        Posix_Rmdir(entry->directoryPath.c_str());
    }
}
