#include "lib/file/fileLock.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "lib/file/fileLockInternal.h"
#include "lib/file/posix.h"
#include "lib/log/log.h"
#include "lib/misc/owners.h"
#include "lib/string/str.h"

struct FileLockToken {
    std::string memberPath;
};

namespace {

constexpr mode_t ENTRY_FILE_MODE = 0644;
constexpr size_t PAYLOAD_SIZE = 32;

// Stands for a shared lock that a read-only place grants without anything on disk.
FileLockToken implicitReadToken;

// Whether the path is absolute and has neither empty nor dot components, so that it is as good as it stands.
bool IsPlainAbsolute(std::string_view path) {
    if (path.empty() || path.front() != '/') {
        return false;
    }
    while (!path.empty()) {
        path.remove_prefix(1);
        const std::string_view component = path.substr(0, path.find('/'));
        if (component.empty() || component == "." || component == "..") {
            return false;
        }
        path.remove_prefix(component.size());
    }
    return true;
}

bool ResolvePath(const std::string &path, std::string *resolved) {
    const MallocString real(Posix_Realpath(path.c_str(), nullptr));
    if (real == nullptr) {
        return false;
    }
    *resolved = real.get();
    return true;
}

// Two spellings of one path must meet in one lock directory. The file itself need not exist, its folder must,
// unless the path needs no resolving.
bool MakeAbsolute(const char *path, std::string *absolute) {
    if (path == nullptr || *path == '\0') {
        return false;
    }
    const std::string given = path;
    if (IsPlainAbsolute(given)) {
        *absolute = given;
        return true;
    }
    const size_t slash = given.rfind('/');
    const std::string base = slash == std::string::npos ? given : given.substr(slash + 1);
    if (base.empty() || base == "." || base == "..") {
        return ResolvePath(given, absolute);
    }
    const std::string folder = slash == std::string::npos ? "." : given.substr(0, slash + 1);
    if (!ResolvePath(folder, absolute)) {
        return false;
    }
    if (absolute->back() != '/') {
        *absolute += '/';
    }
    *absolute += base;
    return true;
}

std::string LockDirectoryOf(const std::string &absolutePath) {
    return absolutePath + FILE_LOCK_SUFFIX;
}

void RemoveIfEmpty(const std::string &directory) {
    Posix_Rmdir(directory.c_str());
}

// From the doorway to the member file. 0, or an errno value and nothing left of the attempt.
int TakeTicket(const std::string &lockDir, const FileLockEntry &entry, FileLockValues *own) {
    // Everyone may write to the directory, so that a link or a FIFO may stand there already.
    FileDescriptor entryFile(Posix_Open(
        entry.filePath.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, ENTRY_FILE_MODE));
    if (!entryFile) {
        const int error = errno;
        RemoveIfEmpty(entry.directoryPath);
        RemoveIfEmpty(lockDir);
        return error;
    }
    const int scanError = ScanDirectory(lockDir.c_str(), FileLockNumberScan, own, false);
    if (scanError != 0) {
        entryFile.reset();
        Posix_Unlink(entry.filePath.c_str());
        RemoveIfEmpty(entry.directoryPath);
        RemoveIfEmpty(lockDir);
        return scanError;
    }
    const int memberError = CreateMemberFile(entryFile.release(), own, entry);
    RemoveIfEmpty(entry.directoryPath);
    if (memberError != 0) {
        Posix_Unlink(entry.filePath.c_str());
        Posix_Unlink(entry.memberPath.c_str());
        RemoveIfEmpty(lockDir);
    }
    return memberError;
}

// What an attempt gets that could not enter the doorway: the implicit lock, or null.
FileLockToken *TokenWithoutEntry(const char *path, bool exclusive, const char *function, int *err) {
    if (!exclusive && (*err == EACCES || *err == EROFS)) {
        Warning("FILE: %s implicit %s lock succeeded on '%s'.\n", function, FILE_LOCK_SHARED, path);
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
    const std::string lockDir = LockDirectoryOf(path);
    const std::string executionID = std::to_string(ownPid);
    const std::string locationChecksum = FileLockLocationChecksum(lockDir.c_str());
    FileLockValues own{};
    own.machineID = FileLockGetMachineID();
    own.executionID = executionID.c_str();
    own.payload = payload;
    own.lockType = exclusive ? FILE_LOCK_EXCLUSIVE : FILE_LOCK_SHARED;
    own.locationChecksum = locationChecksum.c_str();
    own.msecMaxWaitTime = msecMaxWaitTime;

    FileLockEntry entry;
    *err = CreateEntryDirectory(own.machineID, own.executionID, lockDir.c_str(), &entry);
    if (*err != 0) {
        return TokenWithoutEntry(path.c_str(), exclusive, __func__, err);
    }
    own.memberName = entry.memberName.c_str();
    *err = TakeTicket(lockDir, entry, &own);
    if (*err != 0) {
        return nullptr;
    }
    *err = ScanDirectory(lockDir.c_str(), WaitForPossession, &own, true);
    if (*err == EAGAIN) {
        Posix_Unlink(entry.memberPath.c_str());
        RemoveIfEmpty(lockDir);
        *err = 0;
        return nullptr;
    }
    // After any other failure the member file stays: others clear it when its owner is gone.
    return *err == 0 ? new FileLockToken{entry.memberPath} : nullptr;
}

// The token's own file is deleted even when the lock directory could not be told.
int FileLockUnlockIntrinsic(const std::string *lockDir, FileLockToken *token) {
    if (token == &implicitReadToken) {
        return 0;
    }
    const int error = Posix_Unlink(token->memberPath.c_str()) == 0 ? 0 : errno;
    delete token;
    if (lockDir != nullptr) {
        RemoveIfEmpty(*lockDir);
    }
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

int FileLock_Unlock(const char *path, FileLockToken *token) {
    std::string absolutePath;
    if (!MakeAbsolute(path, &absolutePath)) {
        FileLockUnlockIntrinsic(nullptr, token);
        return EINVAL;
    }
    const std::string lockDir = LockDirectoryOf(absolutePath);
    return FileLockUnlockIntrinsic(&lockDir, token);
}
