#include <fcntl.h>

#include <algorithm>
#include <cerrno>

#include "lib/err/errText.h"
#include "lib/file/fileLock.h"
#include "lib/file/fileLockInternal.h"
#include "lib/log/log.h"

namespace {

constexpr uint32_t SCAN_PAUSE_MSEC = 200;
constexpr uint32_t STUCK_AGE_MSEC = 8000;
// The time in which an entry that was there at the start is seen to be stuck, cleared, and gone.
constexpr uint32_t DOORWAY_LIMIT_MSEC = STUCK_AGE_MSEC + 2 * SCAN_PAUSE_MSEC;
constexpr size_t DIGITS_IN_NAME = 5;

constexpr char SCAN_DIRECTORY[] = "ScanDirectory";
constexpr char SCANNER[] = "Scanner";
constexpr char REMOVE_LOCKING_FILE[] = "RemoveLockingFile";

void MarkActive(const std::string &dirName, std::vector<ActiveLock> *activeList) {
    for (ActiveLock &active : *activeList) {
        if (active.dirName == dirName) {
            active.marked = true;
            return;
        }
    }
    activeList->push_back(ActiveLock{0, true, dirName});
}

// Clears out what is no lock file, notes the doorways, and leaves the members in *names.
int FirstPass(FileLockAttempt *attempt, bool cleanUp, std::vector<std::string> *names) {
    std::vector<std::string> members;
    for (std::string &name : *names) {
        if (!FileLockIsValidName(name)) {
            Log("FILE: %s discarding %s from %s'; invalid file name.\n", SCAN_DIRECTORY, name.c_str(),
                attempt->directory.path().c_str());
            const int error = RemoveLockingFile(attempt->directory, name);
            if (error != 0) {
                return error;
            }
        } else if (name.front() == 'M') {
            members.push_back(std::move(name));
        } else if (name.front() == 'D' && cleanUp) {
            MarkActive(name, &attempt->activeList);
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
    if (member.executionID == own.executionID && member.locationChecksum.has_value() &&
        member.locationChecksum != own.locationChecksum) {
        return "lock file has been moved.";
    }
    return nullptr;
}

int JudgeMember(const std::string &name, FileLockScanner scanner, FileLockAttempt *attempt) {
    if (name == attempt->own.memberName) {
        return scanner(attempt->own, attempt);
    }
    FileLockValues member;
    const int error = FileLockMemberValues(attempt->directory, name, &member);
    if (error != 0) {
        return error == ENOENT ? 0 : error;
    }
    const char *reason = ReasonToDiscard(member, attempt->own);
    if (reason != nullptr) {
        Log("FILE: %s discarding %s from %s': %s\n", SCAN_DIRECTORY, name.c_str(),
            attempt->directory.path().c_str(), reason);
        return RemoveLockingFile(attempt->directory, name);
    }
    return scanner(member, attempt);
}

// While anybody stands in the doorway, a waiter does not judge the members.
int ScanTurn(FileLockScanner scanner, FileLockAttempt *attempt, bool cleanUp) {
    std::vector<std::string> names;
    const int readError = attempt->directory.Names(&names);
    if (readError != 0) {
        Log("FILE: %s: Could not read the directory '%s': %d\n", SCAN_DIRECTORY,
            attempt->directory.path().c_str(), readError);
        return EDOM;
    }
    const int passError = FirstPass(attempt, cleanUp, &names);
    if (passError != 0 || !attempt->activeList.empty()) {
        return passError;
    }
    for (const std::string &name : names) {
        const int error = JudgeMember(name, scanner, attempt);
        if (error != 0) {
            return error;
        }
    }
    return 0;
}

// The process of this entry is taken for dead. An entry that cannot be removed would block every waiter
// again and again, so that it ends the wait.
int ClearStuckEntry(const LockDirectory &directory, const std::string &dirName) {
    Log("FILE: %s discarding %s data from '%s'.\n", SCANNER, dirName.c_str(), directory.path().c_str());
    const std::string rest = dirName.substr(1);
    directory.Discard(("M" + rest).c_str());
    directory.Discard(("E" + rest).c_str());
    int error = directory.Discard(dirName.c_str(), AT_REMOVEDIR);
    if (error == ENOTDIR) {  // no doorway of ours, but it blocks like one
        error = directory.Discard(dirName.c_str());
    }
    return error != ENOENT ? error : 0;
}

bool DoorwayWaitHasRunOut(const FileLockAttempt &attempt) {
    return attempt.msecMaxWaitTime != FILE_LOCK_INFINITE_WAIT && attempt.doorwayTime > DOORWAY_LIMIT_MSEC &&
           attempt.doorwayTime - DOORWAY_LIMIT_MSEC > attempt.msecMaxWaitTime;
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

int FileLockAgeActiveList(FileLockAttempt *attempt) {
    std::vector<ActiveLock> stillActive;
    for (ActiveLock &active : attempt->activeList) {
        if (!active.marked) {
            continue;
        }
        if (active.age > STUCK_AGE_MSEC) {
            const int error = ClearStuckEntry(attempt->directory, active.dirName);
            if (error != 0) {
                attempt->doorwayStuck = true;
                return error;
            }
            continue;
        }
        active.age += SCAN_PAUSE_MSEC;
        active.marked = false;
        stillActive.push_back(std::move(active));
    }
    attempt->activeList = std::move(stillActive);
    return 0;
}

int ScanDirectory(FileLockAttempt *attempt, FileLockScanner scanner, bool cleanUp) {
    for (;;) {
        int error = ScanTurn(scanner, attempt, cleanUp);
        if (error > 0 || attempt->activeList.empty()) {
            return error;
        }
        error = FileLockAgeActiveList(attempt);
        if (error == 0 && DoorwayWaitHasRunOut(*attempt)) {
            Log("FILE: %s timeout on '%s' due to entry directories\n", SCAN_DIRECTORY,
                attempt->directory.path().c_str());
            error = EAGAIN;
        }
        if (error != 0) {
            return error;
        }
        FileLockSleep(SCAN_PAUSE_MSEC);
        attempt->doorwayTime += SCAN_PAUSE_MSEC;
    }
}

int FileLockNumberScan(const FileLockValues &member, FileLockAttempt *attempt) {
    attempt->own.lamportNumber = std::max(attempt->own.lamportNumber, member.lamportNumber);
    return 0;
}

int RemoveLockingFile(const LockDirectory &directory, const std::string &name) {
    const int error = directory.Discard(name.c_str());
    if (error == 0 || error == ENOENT) {
        return 0;
    }
    Warning("FILE: %s of '%s' failed: %s\n", REMOVE_LOCKING_FILE, directory.PathOf(name).c_str(),
            Err_ErrnoText(error));
    return error;
}
