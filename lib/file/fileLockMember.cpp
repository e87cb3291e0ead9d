#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "lib/err/errText.h"
#include "lib/file/fileLockInternal.h"
#include "lib/file/posix.h"
#include "lib/log/log.h"
#include "lib/misc/owners.h"
#include "lib/string/str.h"

namespace {

constexpr uint32_t CHECKSUM_START = 5381;
constexpr size_t MIN_TOKENS = 4;  // machine id, execution id, Lamport number, lock type
constexpr size_t MAX_TOKENS = 16;
constexpr char NO_PAYLOAD[] = "[";
constexpr char CHECKSUM_NAME[] = "lc";

// Why a member file counts as corrupt has been said where it showed; all of them end here.
constexpr int MEMBER_CORRUPT = -1;

const char MEMBER_VALUES[] = "FileLockMemberValues";

// The number of tokens, MAX_TOKENS + 1 when there are more.
size_t SplitTokens(char *text, char *(&tokens)[MAX_TOKENS]) {
    size_t count = 0;
    char *rest = nullptr;
    for (char *token = strtok_r(text, " ", &rest); token != nullptr; token = strtok_r(nullptr, " ", &rest)) {
        if (count == MAX_TOKENS) {
            return MAX_TOKENS + 1;
        }
        tokens[count++] = token;
    }
    return count;
}

bool TakePair(char *pair, FileLockValues *member) {
    char *divider = strchr(pair, '=');
    if (divider == nullptr || divider == pair || divider[1] == '\0') {
        return false;
    }
    *divider = '\0';
    if (strcmp(pair, CHECKSUM_NAME) == 0) {
        member->locationChecksum = divider + 1;
    }
    return true;
}

// Reads the whole record into a buffer that the caller has zeroed. 0, MEMBER_CORRUPT or an errno value.
int ReadMemberFile(const char *path, char *buffer, size_t size) {
    // Without blocking: a FIFO under the name of a member must not hold up the lock, nor may a link lead the
    // superuser to a device.
    const FileDescriptor file(Posix_Open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
    if (!file) {
        const int error = errno;
        if (error == ELOOP) {
            return MEMBER_CORRUPT;
        }
        if (error != ENOENT) {
            Warning("FILE: %s open failure on '%s': %s\n", MEMBER_VALUES, path, Err_ErrnoText(error));
        }
        return error;
    }
    struct stat status;
    if (fstat(file.get(), &status) != 0) {
        const int error = errno;
        Warning("FILE: %s file size failure on '%s': %s\n", MEMBER_VALUES, path, Err_ErrnoText(error));
        return error;
    }
    if (static_cast<size_t>(status.st_size) != size) {
        Warning("FILE: %s file '%s': size %lu, required size %u\n", MEMBER_VALUES, path,
                static_cast<unsigned long>(status.st_size), static_cast<unsigned>(size));
        return MEMBER_CORRUPT;
    }
    const ssize_t received = read(file.get(), buffer, size);
    if (received < 0) {
        const int error = errno;
        Warning("FILE: %s read failure on '%s': %s\n", MEMBER_VALUES, path, Err_ErrnoText(error));
        return error;
    }
    if (static_cast<size_t>(received) != size) {
        Warning("FILE: %s read length issue on '%s': %u and %u\n", MEMBER_VALUES, path,
                static_cast<unsigned>(size), static_cast<unsigned>(received));
        return EIO;
    }
    return 0;
}

int RemoveCorruptMember(const char *path) {
    Warning("FILE: %s removing problematic lock file '%s'\n", MEMBER_VALUES, path);
    return Posix_Unlink(path) == 0 ? ENOENT : errno;
}

// Writes and closes. 0 or an errno value.
int WriteMemberRecord(int entryFd, const char *record, const char *path, const char *function) {
    const ssize_t written = write(entryFd, record, FILE_LOCK_MEMBER_SIZE);
    const int writeError = errno;
    const int closeError = close(entryFd) == 0 ? 0 : errno;
    if (written < 0) {
        Warning("FILE: %s write of '%s' failed: %s\n", function, path, Err_ErrnoText(writeError));
        return writeError;
    }
    if (closeError != 0) {
        Warning("FILE: %s close of '%s' failed: %s\n", function, path, Err_ErrnoText(closeError));
        return closeError;
    }
    if (static_cast<size_t>(written) != FILE_LOCK_MEMBER_SIZE) {
        Warning("FILE: %s write length issue on '%s': %u and %zd\n", function, path,
                static_cast<unsigned>(FILE_LOCK_MEMBER_SIZE), written);
        return EIO;
    }
    return 0;
}

}  // namespace

std::string FileLockLocationChecksum(const char *lockDir) {
    uint32_t sum = CHECKSUM_START;
    for (; *lockDir != '\0'; lockDir++) {
        sum = sum * 33 + static_cast<uint32_t>(static_cast<signed char>(*lockDir));
    }
    char text[16];
    Str_Sprintf(text, sizeof text, "%u", sum);
    return text;
}

bool FileLockParseMember(char *text, FileLockValues *member) {
    char *tokens[MAX_TOKENS];
    const size_t count = SplitTokens(text, tokens);
    if (count < MIN_TOKENS || count > MAX_TOKENS) {
        return false;
    }
    member->payload = count > MIN_TOKENS && strcmp(tokens[4], NO_PAYLOAD) != 0 ? tokens[4] : nullptr;
    member->locationChecksum = nullptr;
    for (size_t i = MIN_TOKENS + 1; i < count; i++) {
        if (!TakePair(tokens[i], member)) {
            return false;
        }
    }
    if (sscanf(tokens[2], "%u", &member->lamportNumber) != 1) {
        Warning("FILE: %s Lamport number conversion error\n", MEMBER_VALUES);
        return false;
    }
    if (strcmp(tokens[3], FILE_LOCK_SHARED) != 0 && strcmp(tokens[3], FILE_LOCK_EXCLUSIVE) != 0) {
        Warning("FILE: %s unknown lock type '%s'\n", MEMBER_VALUES, tokens[3]);
        return false;
    }
    member->machineID = tokens[0];
    member->executionID = tokens[1];
    member->lockType = tokens[3];
    return true;
}

int FileLockMemberValues(const char *lockDir, const char *name, char *buffer, size_t size,
                         FileLockValues *member) {
    const std::string path = std::string(lockDir) + "/" + name;
    int error = ReadMemberFile(path.c_str(), buffer, size);
    buffer[size] = '\0';
    if (error == 0 && !FileLockParseMember(buffer, member)) {
        error = MEMBER_CORRUPT;
    }
    if (error == MEMBER_CORRUPT) {
        return RemoveCorruptMember(path.c_str());
    }
    member->memberName = name;
    return error;
}

int CreateMemberFile(int entryFd, FileLockValues *own, const FileLockEntry &entry) {
    own->lamportNumber++;
    char record[FILE_LOCK_MEMBER_SIZE] = {};
    Str_Sprintf(record, sizeof record, "%s %s %u %s %s lc=%s", own->machineID, own->executionID,
                own->lamportNumber, own->lockType, own->payload != nullptr ? own->payload : NO_PAYLOAD,
                own->locationChecksum);
    const int error = WriteMemberRecord(entryFd, record, entry.filePath.c_str(), __func__);
    if (error != 0) {
        return error;
    }
    if (Posix_Rename(entry.filePath.c_str(), entry.memberPath.c_str()) != 0) {
        const int renameError = errno;
        Warning("FILE: %s FileRename of '%s' to '%s' failed: %s\n", __func__, entry.filePath.c_str(),
                entry.memberPath.c_str(), Err_ErrnoText(renameError));
        return renameError;
    }
    return 0;
}
