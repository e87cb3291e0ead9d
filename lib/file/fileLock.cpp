#include "lib/file/fileLock.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>

#include "lib/file/fileLockInternal.h"
#include "lib/file/posix.h"
#include "lib/log/log.h"
#include "lib/misc/owners.h"
#include "lib/string/str.h"

struct FileLockToken {
    LockDirectory directory;
    std::string memberName;
};

namespace {

constexpr mode_t ENTRY_FILE_MODE = 0644;
constexpr size_t PAYLOAD_SIZE = 32;
constexpr char FILE_LOCK_INTRINSIC[] = "FileLockIntrinsic";

// Stands for a shared lock that a read-only place grants without anything on disk.
FileLockToken implicitReadToken{LockDirectory(""), ""};

bool ResolvePath(const std::string &path, std::string *resolved) {
    const MallocString real(Posix_Realpath(path.c_str(), nullptr));
    if (real == nullptr) {
        return false;
    }
    *resolved = real.get();
    return true;
}

// Two spellings of one path must meet in one lock directory, those through links among them. The file itself
// need not exist. Its folder must, unless the path is absolute as it stands: then whoever works in the folder
// finds out.
bool MakeAbsolute(const char *path, std::string *absolute) {
    if (path == nullptr || *path == '\0') {
        return false;
    }
    const std::string given = path;
    const size_t slash = given.rfind('/');
    const std::string base = slash == std::string::npos ? given : given.substr(slash + 1);
    if (base.empty() || base == "." || base == "..") {
        return ResolvePath(given, absolute);
    }
    const std::string folder = slash == std::string::npos ? "." : given.substr(0, std::max<size_t>(slash, 1));
    if (!ResolvePath(folder, absolute)) {
        *absolute = given;
        return given.front() == '/';
    }
    if (absolute->back() != '/') {
        *absolute += '/';
    }
    *absolute += base;
    return true;
}

// The entry file of this attempt, or an empty descriptor and errno. What stands under its name belongs to an
// attempt that has ended, or is a trap: everyone may write to the directory and work out the number that a
// process will draw.
FileDescriptor CreateEntryFile(const LockDirectory &directory, const char *name) {
    constexpr int FLAGS = O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC;
    FileDescriptor file(openat(directory.fd(), name, FLAGS, ENTRY_FILE_MODE));
    if (!file && errno == EEXIST) {
        const int error = RemoveLockingFile(directory, name);
        if (error != 0) {
            errno = error;
            return file;
        }
        file.reset(openat(directory.fd(), name, FLAGS, ENTRY_FILE_MODE));
    }
    return file;
}

void RemoveOwn(const LockDirectory &directory, const std::string &name, int unlinkFlags = 0) {
    unlinkat(directory.fd(), name.c_str(), unlinkFlags);
}

// From the doorway to the member file. 0, or an errno value and nothing left of the attempt.
int TakeTicket(FileLockAttempt *attempt) {
    const LockDirectory &directory = attempt->directory;
    FileDescriptor entryFile = CreateEntryFile(directory, attempt->entryName.c_str());
    if (!entryFile) {
        const int error = errno;
        RemoveOwn(directory, attempt->entryDirName, AT_REMOVEDIR);
        directory.RemoveIfEmpty();
        return error;
    }
    const int scanError = ScanDirectory(attempt, FileLockNumberScan, false);
    if (scanError != 0) {
        entryFile.reset();
        RemoveOwn(directory, attempt->entryName);
        RemoveOwn(directory, attempt->entryDirName, AT_REMOVEDIR);
        directory.RemoveIfEmpty();
        return scanError;
    }
    const int memberError = CreateMemberFile(std::move(entryFile), attempt);
    RemoveOwn(directory, attempt->entryDirName, AT_REMOVEDIR);
    if (memberError != 0) {
        RemoveOwn(directory, attempt->entryName);
        RemoveOwn(directory, attempt->own.memberName);
        directory.RemoveIfEmpty();
    }
    return memberError;
}

// What an attempt gets that could not enter the doorway: the implicit lock, or null.
FileLockToken *TokenWithoutEntry(const std::string &path, bool exclusive, int *err) {
    if (!exclusive && (*err == EACCES || *err == EROFS)) {
        Warning("FILE: %s implicit %s lock succeeded on '%s'.\n", FILE_LOCK_INTRINSIC, FILE_LOCK_SHARED,
                path.c_str());
        *err = 0;
        return &implicitReadToken;
    }
    if (*err == EAGAIN) {  // an old style lock
        *err = 0;
    }
    return nullptr;
}

FileLockToken *FileLockIntrinsic(const std::string &path, bool exclusive, uint32_t msecMaxWaitTime,
                                 const char *payload, int ownPid, int *err) {
    FileLockAttempt attempt{.directory = LockDirectory(path + FILE_LOCK_SUFFIX),
                            .msecMaxWaitTime = msecMaxWaitTime};
    attempt.own.machineID = FileLockGetMachineID();
    attempt.own.executionID = std::to_string(ownPid);
    attempt.own.payload = payload;
    attempt.own.lockType = std::string(exclusive ? FILE_LOCK_EXCLUSIVE : FILE_LOCK_SHARED);
    attempt.own.locationChecksum = FileLockLocationChecksum(attempt.directory.path());

    *err = CreateEntryDirectory(&attempt);
    if (*err != 0) {
        attempt.directory.RemoveIfEmpty();
        return TokenWithoutEntry(path, exclusive, err);
    }
    *err = TakeTicket(&attempt);
    if (*err != 0) {
        return nullptr;
    }
    *err = ScanDirectory(&attempt, WaitForPossession, true);
    if (*err == 0) {
        return new FileLockToken{std::move(attempt.directory), std::move(attempt.own.memberName)};
    }
    // After any other failure the member file stays: others clear it when its owner is gone.
    if (*err == EAGAIN || attempt.doorwayStuck) {
        RemoveOwn(attempt.directory, attempt.own.memberName);
        attempt.directory.RemoveIfEmpty();
    }
    if (*err == EAGAIN) {
        *err = 0;
    }
    return nullptr;
}

int FileLockUnlockIntrinsic(FileLockToken *token) {
    if (token == &implicitReadToken) {
        return 0;
    }
    const std::unique_ptr<FileLockToken> owner(token);
    const int error = unlinkat(token->directory.fd(), token->memberName.c_str(), 0) == 0 ? 0 : errno;
    token->directory.RemoveIfEmpty();
    return error;
}

}  // namespace

FileLockToken *FileLock_Lock(const char *path, bool readOnly, uint32_t msecMaxWaitTime, int *err) {
    std::string absolutePath;
    if (!MakeAbsolute(path, &absolutePath)) {
        *err = EINVAL;
        return nullptr;
    }
    const int ownPid = FileLockGetPid();
    char payload[PAYLOAD_SIZE];
    Str_Sprintf(payload, sizeof payload, "%lu", FileLockOwnCreationTime(ownPid));
    return FileLockIntrinsic(absolutePath, !readOnly, msecMaxWaitTime, payload, ownPid, err);
}

// The token knows its place, so that the lock is given back whatever has become of the path.
int FileLock_Unlock(const char *path, FileLockToken *token) {
    std::string absolutePath;
    const bool isAbsolute = (path != nullptr && *path == '/') || MakeAbsolute(path, &absolutePath);
    const int error = FileLockUnlockIntrinsic(token);
    return isAbsolute ? error : EINVAL;
}
