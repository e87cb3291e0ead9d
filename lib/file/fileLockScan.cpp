#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "lib/err/errText.h"
#include "lib/file/fileLockInternal.h"
#include "lib/file/posix.h"
#include "lib/log/log.h"
#include "lib/misc/owners.h"

namespace {

constexpr uint32_t SCAN_PAUSE_MSEC = 200;
constexpr uint32_t STUCK_AGE_MSEC = 8000;
constexpr size_t DIGITS_IN_NAME = 5;

const char SCAN_DIRECTORY[] = "ScanDirectory";

// 0 or an errno value.
int ReadNames(const char *lockDir, std::vector<std::string> *names) {
    const Directory directory(Posix_Opendir(lockDir));
    if (directory == nullptr) {
        return errno;
    }
    for (;;) {
        errno = 0;
        const dirent *item = readdir(directory.get());
        if (item == nullptr) {
            return errno;
        }
        if (strcmp(item->d_name, ".") != 0 && strcmp(item->d_name, "..") != 0) {
            names->push_back(item->d_name);
        }
    }
}

void MarkActive(const std::string &dirName, FileLockValues *own) {
    for (ActiveLock &active : own->activeList) {
        if (active.dirName == dirName) {
            active.marked = true;
            return;
        }
    }
    own->activeList.push_back(ActiveLock{0, true, dirName});
}

// Clears out what is no lock file, notes the doorways, and leaves the members in *names.
int FirstPass(const char *lockDir, FileLockValues *own, bool cleanUp, std::vector<std::string> *names) {
    std::vector<std::string> members;
    for (std::string &name : *names) {
        if (!FileLockIsValidName(name)) {
            Log("FILE: %s discarding %s from %s'; invalid file name.\n", SCAN_DIRECTORY, name.c_str(),
                lockDir);
            const int error = RemoveLockingFile(lockDir, name.c_str());
            if (error != 0) {
                return error;
            }
        } else if (name.front() == 'M') {
            members.push_back(std::move(name));
        } else if (name.front() == 'D' && cleanUp) {
            MarkActive(name, own);
        }
    }
    *names = std::move(members);
    return 0;
}

// Null when the member may stay.
const char *ReasonToDiscard(const FileLockValues &member, const FileLockValues &own) {
    if (!FileLockMachineIDMatch(own.machineID, member.machineID)) {
        return nullptr;
    }
    if (!FileLockValidOwner(member.executionID, member.payload)) {
        return "invalid executionID.";
    }
    if (strcmp(member.executionID, own.executionID) == 0 && member.locationChecksum != nullptr &&
        strcmp(member.locationChecksum, own.locationChecksum) != 0) {
        return "lock file has been moved.";
    }
    return nullptr;
}

int JudgeMember(const char *lockDir, const char *name, FileLockScanner scanner, FileLockValues *own) {
    if (strcmp(name, own->memberName) == 0) {
        return scanner(lockDir, name, own, own);
    }
    char buffer[FILE_LOCK_MEMBER_SIZE + 1];
    FileLockValues member{};
    const int error = FileLockMemberValues(lockDir, name, buffer, FILE_LOCK_MEMBER_SIZE, &member);
    if (error != 0) {
        return error == ENOENT ? 0 : error;
    }
    const char *reason = ReasonToDiscard(member, *own);
    if (reason != nullptr) {
        Log("FILE: %s discarding %s from %s': %s\n", SCAN_DIRECTORY, name, lockDir, reason);
        return RemoveLockingFile(lockDir, name);
    }
    return scanner(lockDir, name, &member, own);
}

// While anybody stands in the doorway, a waiter does not judge the members.
int ScanTurn(const char *lockDir, FileLockScanner scanner, FileLockValues *own, bool cleanUp) {
    std::vector<std::string> names;
    const int readError = ReadNames(lockDir, &names);
    if (readError != 0) {
        Log("FILE: %s: Could not read the directory '%s': %d\n", SCAN_DIRECTORY, lockDir, readError);
        return EDOM;
    }
    const int passError = FirstPass(lockDir, own, cleanUp, &names);
    if (passError != 0 || !own->activeList.empty()) {
        return passError;
    }
    for (const std::string &name : names) {
        const int error = JudgeMember(lockDir, name.c_str(), scanner, own);
        if (error != 0) {
            return error;
        }
    }
    return 0;
}

// The process of this entry is taken for dead.
void ClearStuckEntry(const char *lockDir, const std::string &dirName) {
    Log("FILE: %s discarding %s data from '%s'.\n", "Scanner", dirName.c_str(), lockDir);
    const std::string folder = std::string(lockDir) + "/";
    const std::string rest = dirName.substr(1);
    Posix_Unlink((folder + "M" + rest).c_str());
    Posix_Unlink((folder + "E" + rest).c_str());
    const std::string doorway = folder + dirName;
    if (Posix_Rmdir(doorway.c_str()) != 0 && errno == ENOTDIR) {
        Posix_Unlink(doorway.c_str());  // no doorway of ours, but it blocks like one
    }
}

// A name that is not ASCII is given to the kernel as the directory told it: it need not be valid in the
// encoding that paths are converted to.
int DeleteByName(const char *lockDir, const char *name) {
    const bool isAscii = std::all_of(name, name + strlen(name), [](char c) { return (c & 0x80) == 0; });
    if (isAscii) {
        return Posix_Unlink((std::string(lockDir) + "/" + name).c_str());
    }
    const FileDescriptor directory(Posix_Open(lockDir, O_PATH | O_DIRECTORY | O_CLOEXEC));
    return directory ? unlinkat(directory.get(), name, 0) : -1;
}

}  // namespace

bool FileLockIsValidName(std::string_view name) {
    if (name.empty() || std::string_view("MDE").find(name.front()) == std::string_view::npos) {
        return false;
    }
    const std::string_view digits = name.substr(1, DIGITS_IN_NAME);
    return digits.size() == DIGITS_IN_NAME &&
           std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }) &&
           name.substr(1 + DIGITS_IN_NAME).ends_with(FILE_LOCK_SUFFIX);
}

void FileLockAgeActiveList(const char *lockDir, FileLockValues *own) {
    std::vector<ActiveLock> stillActive;
    for (ActiveLock &active : own->activeList) {
        if (!active.marked) {
            continue;
        }
        if (active.age > STUCK_AGE_MSEC) {
            ClearStuckEntry(lockDir, active.dirName);
            continue;
        }
        active.age += SCAN_PAUSE_MSEC;
        active.marked = false;
        stillActive.push_back(std::move(active));
    }
    own->activeList = std::move(stillActive);
}

int ScanDirectory(const char *lockDir, FileLockScanner scanner, FileLockValues *own, bool cleanUp) {
    for (;;) {
        const int error = ScanTurn(lockDir, scanner, own, cleanUp);
        if (error > 0 || own->activeList.empty()) {
            own->activeList.clear();
            return error;
        }
        FileLockAgeActiveList(lockDir, own);
        FileLockSleep(SCAN_PAUSE_MSEC);
    }
}

int FileLockNumberScan([[maybe_unused]] const char *lockDir, [[maybe_unused]] const char *name,
                       const FileLockValues *member, FileLockValues *own) {
    own->lamportNumber = std::max(own->lamportNumber, member->lamportNumber);
    return 0;
}

int RemoveLockingFile(const char *lockDir, const char *name) {
    if (DeleteByName(lockDir, name) == 0 || errno == ENOENT) {
        return 0;
    }
    const int error = errno;
    const std::string path = std::string(lockDir) + "/" + name;
    Warning("FILE: %s of '%s' failed: %s\n", __func__, path.c_str(), Err_ErrnoText(error));
    return error;
}
