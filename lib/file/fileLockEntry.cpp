#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>

#include "lib/err/errText.h"
#include "lib/file/fileLockInternal.h"
#include "lib/log/log.h"
#include "lib/misc/tt800.h"
#include "lib/string/str.h"

namespace {

constexpr char CREATE_ENTRY_DIRECTORY[] = "CreateEntryDirectory";
constexpr mode_t ENTRY_DIRECTORY_MODE = 0777;
// Far beyond what a crowd needs; so many fail only where nearly all numbers are taken for good, or where
// somebody exchanges the directory without end.
constexpr int MAX_TRIES = 256;
constexpr int START_OVER = -1;  // beside errno values

struct EntryState {
    std::mutex generatorMutex;
    std::optional<Tt800> generator;
    std::string generatorOwner;  // execution id; another one after a fork, which makes its own generator
    std::mutex umaskMutex;       // two threads that swap the umask at once would lose the process's own
};

EntryState entryState;

// Directories made meanwhile are open to everyone: any user's process may have to work on the lock.
class ClearedUmask {
  public:
    ClearedUmask() : guard_(entryState.umaskMutex), former_(umask(0)) {}
    ~ClearedUmask() { umask(former_); }
    ClearedUmask(const ClearedUmask &) = delete;
    ClearedUmask &operator=(const ClearedUmask &) = delete;

  private:
    const std::lock_guard<std::mutex> guard_;
    const mode_t former_;
};

uint32_t SumOfSignedCharacters(const std::string &text) {
    uint32_t sum = 0;
    for (const char character : text) {
        sum += static_cast<uint32_t>(static_cast<signed char>(character));
    }
    return sum;
}

unsigned DrawEntryNumber(const FileLockValues &own) {
    const std::lock_guard guard(entryState.generatorMutex);
    if (!entryState.generator || entryState.generatorOwner != own.executionID) {
        entryState.generatorOwner = own.executionID;
        entryState.generator.emplace(SumOfSignedCharacters(own.machineID) +
                                     SumOfSignedCharacters(own.executionID));
    }
    return (entryState.generator->Next() >> 8) & 0xFFFF;
}

int CreationFailure(const std::string &path, int error) {
    Warning("FILE: %s creation failure on '%s': %s\n", CREATE_ENTRY_DIRECTORY, path.c_str(),
            Err_ErrnoText(error));
    return error;
}

int StatFailure(const std::string &path, int error) {
    Warning("FILE: %s stat failure on '%s': %s\n", CREATE_ENTRY_DIRECTORY, path.c_str(),
            Err_ErrnoText(error));
    return error;
}

// What to do with something that is no directory, links wherever they lead among it. It may have gone, or
// become a directory, since it was found.
int HandleForeignObject(const LockDirectory &directory) {
    mode_t type = 0;
    const int error = directory.Type(&type);
    if (error != 0) {
        return error == ENOENT ? START_OVER : StatFailure(directory.path(), error);
    }
    if (type == S_IFREG) {
        Log("FILE: %s: '%s' exists; an old style lock file?\n", CREATE_ENTRY_DIRECTORY,
            directory.path().c_str());
        return EAGAIN;
    }
    if (type != S_IFDIR && directory.Discard() != 0) {
        Warning("FILE: %s: '%s' exists and is not a directory.\n", CREATE_ENTRY_DIRECTORY,
                directory.path().c_str());
        return ENOTDIR;
    }
    return START_OVER;
}

int PrepareLockDirectory(LockDirectory *directory) {
    int error = directory->Open();
    if (error == ENOENT) {
        error = directory->Make();
        if (error != 0 && error != EEXIST) {
            return CreationFailure(directory->path(), error);
        }
        error = directory->Open();
    }
    switch (error) {
        case 0:
            return 0;
        case ENOENT:
            return START_OVER;
        case ENOTDIR:
        case ELOOP:
            return HandleForeignObject(*directory);
        default:
            return StatFailure(directory->path(), error);
    }
}

void DrawNames(FileLockAttempt *attempt) {
    const unsigned number = DrawEntryNumber(attempt->own);
    char name[16];
    Str_Sprintf(name, sizeof name, "D%05u%s", number, FILE_LOCK_SUFFIX);
    attempt->entryDirName = name;
    Str_Sprintf(name, sizeof name, "E%05u%s", number, FILE_LOCK_SUFFIX);
    attempt->entryName = name;
    Str_Sprintf(name, sizeof name, "M%05u%s", number, FILE_LOCK_SUFFIX);
    attempt->own.memberName = name;
}

int MakeEntryDirectory(const LockDirectory &directory, const std::string &name) {
    if (mkdirat(directory.fd(), name.c_str(), ENTRY_DIRECTORY_MODE) == 0) {
        return 0;
    }
    // Another process has this number, or the lock directory has just been removed.
    return errno == EEXIST || errno == ENOENT ? START_OVER : CreationFailure(directory.PathOf(name), errno);
}

bool MemberIsFree(const FileLockAttempt &attempt) {
    struct stat status;
    return fstatat(attempt.directory.fd(), attempt.own.memberName.c_str(), &status, AT_SYMLINK_NOFOLLOW) !=
               0 &&
           errno == ENOENT;
}

// 0, START_OVER or an errno value.
int TryToEnter(FileLockAttempt *attempt) {
    LockDirectory &directory = attempt->directory;
    {
        const ClearedUmask forBothDirectories;
        int error = PrepareLockDirectory(&directory);
        if (error != 0) {
            return error;
        }
        DrawNames(attempt);
        error = MakeEntryDirectory(directory, attempt->entryDirName);
        if (error != 0) {
            return error;
        }
    }
    if (MemberIsFree(*attempt)) {
        return 0;
    }
    unlinkat(directory.fd(), attempt->entryDirName.c_str(), AT_REMOVEDIR);
    return START_OVER;
}

}  // namespace

int CreateEntryDirectory(FileLockAttempt *attempt) {
    const std::string &path = attempt->directory.path();
    const int folderError = attempt->directory.FindFolder();
    if (folderError != 0) {
        return folderError == ENOENT ? CreationFailure(path, ENOENT) : StatFailure(path, folderError);
    }
    for (int i = 0; i < MAX_TRIES; i++) {
        const int error = TryToEnter(attempt);
        if (error != START_OVER) {
            return error;
        }
    }
    return CreationFailure(path, EBUSY);
}
