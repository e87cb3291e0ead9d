#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "lib/err/errText.h"
#include "lib/file/fileLockInternal.h"
#include "lib/log/log.h"
#include "lib/string/str.h"

namespace {

constexpr uint32_t CHECKSUM_START = 5381;
constexpr size_t MIN_TOKENS = 4;  // machine id, execution id, Lamport number, lock type
constexpr size_t MAX_TOKENS = 16;
constexpr char NO_PAYLOAD[] = "[";
constexpr std::string_view CHECKSUM_NAME = "lc";

// Why a member file counts as corrupt has been said where it showed; all of them end here.
constexpr int MEMBER_CORRUPT = -1;

constexpr char MEMBER_VALUES[] = "FileLockMemberValues";
constexpr char CREATE_MEMBER_FILE[] = "CreateMemberFile";

// One more than MAX_TOKENS at most, which tells that there are too many.
std::vector<std::string> SplitTokens(std::string_view text) {
    std::vector<std::string> tokens;
    while (tokens.size() <= MAX_TOKENS) {
        text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
        if (text.empty()) {
            break;
        }
        const std::string_view token = text.substr(0, text.find(' '));
        tokens.emplace_back(token);
        text.remove_prefix(token.size());
    }
    return tokens;
}

bool TakePair(std::string_view pair, FileLockValues *member) {
    const size_t divider = pair.find('=');
    if (divider == std::string_view::npos || divider == 0 || divider + 1 == pair.size()) {
        return false;
    }
    if (pair.substr(0, divider) == CHECKSUM_NAME) {
        member->locationChecksum = pair.substr(divider + 1);
    }
    return true;
}

// Reads the whole record. 0, MEMBER_CORRUPT or an errno value.
int ReadMemberFile(const LockDirectory &directory, const std::string &name,
                   char (&record)[FILE_LOCK_MEMBER_SIZE]) {
    const std::string path = directory.PathOf(name);
    // Without blocking: a FIFO under the name of a member must not hold up the lock, nor may a link lead the
    // superuser to a device.
    const FileDescriptor file(
        openat(directory.fd(), name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
    if (!file) {
        const int error = errno;
        if (error == ELOOP) {
            return MEMBER_CORRUPT;
        }
        if (error != ENOENT) {
            Warning("FILE: %s open failure on '%s': %s\n", MEMBER_VALUES, path.c_str(), Err_ErrnoText(error));
        }
        return error;
    }
    struct stat status;
    if (fstat(file.get(), &status) != 0) {
        const int error = errno;
        Warning("FILE: %s file size failure on '%s': %s\n", MEMBER_VALUES, path.c_str(),
                Err_ErrnoText(error));
        return error;
    }
    if (static_cast<size_t>(status.st_size) != sizeof record) {
        Warning("FILE: %s file '%s': size %lu, required size %u\n", MEMBER_VALUES, path.c_str(),
                static_cast<unsigned long>(status.st_size), static_cast<unsigned>(sizeof record));
        return MEMBER_CORRUPT;
    }
    const ssize_t received = read(file.get(), record, sizeof record);
    if (received < 0) {
        const int error = errno;
        Warning("FILE: %s read failure on '%s': %s\n", MEMBER_VALUES, path.c_str(), Err_ErrnoText(error));
        return error;
    }
    if (static_cast<size_t>(received) != sizeof record) {
        Warning("FILE: %s read length issue on '%s': %u and %u\n", MEMBER_VALUES, path.c_str(),
                static_cast<unsigned>(sizeof record), static_cast<unsigned>(received));
        return EIO;
    }
    return 0;
}

int RemoveCorruptMember(const LockDirectory &directory, const std::string &name) {
    Warning("FILE: %s removing problematic lock file '%s'\n", MEMBER_VALUES, directory.PathOf(name).c_str());
    const int error = directory.Discard(name.c_str());
    return error == 0 ? ENOENT : error;
}

// Writes and closes.
int WriteMemberRecord(FileDescriptor file, const char (&record)[FILE_LOCK_MEMBER_SIZE], const char *path) {
    const ssize_t written = write(file.get(), record, sizeof record);
    const int writeError = errno;
    const int closeError = close(file.release()) == 0 ? 0 : errno;
    if (written < 0) {
        Warning("FILE: %s write of '%s' failed: %s\n", CREATE_MEMBER_FILE, path, Err_ErrnoText(writeError));
        return writeError;
    }
    if (closeError != 0) {
        Warning("FILE: %s close of '%s' failed: %s\n", CREATE_MEMBER_FILE, path, Err_ErrnoText(closeError));
        return closeError;
    }
    if (static_cast<size_t>(written) != sizeof record) {
        Warning("FILE: %s write length issue on '%s': %u and %zd\n", CREATE_MEMBER_FILE, path,
                static_cast<unsigned>(sizeof record), written);
        return EIO;
    }
    return 0;
}

}  // namespace

std::string FileLockLocationChecksum(const std::string &lockDir) {
    uint32_t sum = CHECKSUM_START;
    for (const char character : lockDir) {
        sum = sum * 33 + static_cast<uint32_t>(static_cast<signed char>(character));
    }
    return std::to_string(sum);
}

bool FileLockParseMember(std::string_view record, FileLockValues *member) {
    const std::vector<std::string> tokens = SplitTokens(record.substr(0, record.find('\0')));
    if (tokens.size() < MIN_TOKENS || tokens.size() > MAX_TOKENS) {
        return false;
    }
    member->payload.reset();
    if (tokens.size() > MIN_TOKENS && tokens[4] != NO_PAYLOAD) {
        member->payload = tokens[4];
    }
    member->locationChecksum.reset();
    for (size_t i = MIN_TOKENS + 1; i < tokens.size(); i++) {
        if (!TakePair(tokens[i], member)) {
            return false;
        }
    }
    if (sscanf(tokens[2].c_str(), "%u", &member->lamportNumber) != 1) {
        Warning("FILE: %s Lamport number conversion error\n", MEMBER_VALUES);
        return false;
    }
    if (tokens[3] != FILE_LOCK_SHARED && tokens[3] != FILE_LOCK_EXCLUSIVE) {
        Warning("FILE: %s unknown lock type '%s'\n", MEMBER_VALUES, tokens[3].c_str());
        return false;
    }
    member->machineID = tokens[0];
    member->executionID = tokens[1];
    member->lockType = tokens[3];
    return true;
}

int FileLockMemberValues(const LockDirectory &directory, const std::string &name, FileLockValues *member) {
    char record[FILE_LOCK_MEMBER_SIZE];
    int error = ReadMemberFile(directory, name, record);
    if (error == 0 && !FileLockParseMember({record, sizeof record}, member)) {
        error = MEMBER_CORRUPT;
    }
    if (error == MEMBER_CORRUPT) {
        return RemoveCorruptMember(directory, name);
    }
    member->memberName = name;
    return error;
}

int CreateMemberFile(FileDescriptor entryFile, FileLockAttempt *attempt) {
    FileLockValues &own = attempt->own;
    own.lamportNumber++;
    char record[FILE_LOCK_MEMBER_SIZE] = {};
    Str_Sprintf(record, sizeof record, "%s %s %u %s %s lc=%s", own.machineID.c_str(), own.executionID.c_str(),
                own.lamportNumber, own.lockType.c_str(), own.payload.value_or(NO_PAYLOAD).c_str(),
                own.locationChecksum.value_or("").c_str());
    const std::string entryPath = attempt->directory.PathOf(attempt->entryName);
    const int error = WriteMemberRecord(std::move(entryFile), record, entryPath.c_str());
    if (error != 0) {
        return error;
    }
    const int directory = attempt->directory.fd();
    if (renameat(directory, attempt->entryName.c_str(), directory, own.memberName.c_str()) != 0) {
        const int renameError = errno;
        Warning("FILE: %s FileRename of '%s' to '%s' failed: %s\n", CREATE_MEMBER_FILE, entryPath.c_str(),
                attempt->directory.PathOf(own.memberName).c_str(), Err_ErrnoText(renameError));
        return renameError;
    }
    return 0;
}
