#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <cerrno>

#include "lib/file/fileLock.h"
#include "lib/file/fileLockInternal.h"
#include "lib/log/log.h"

namespace {

constexpr uint32_t SHORT_PAUSE_MSEC = 100;
constexpr uint32_t LONG_PAUSE_MSEC = 2000;
constexpr unsigned SHORT_PAUSES_UP_TO = 20;
constexpr unsigned LAST_LOOP_COUNTER = 40;
constexpr uint32_t SLEEP_SLICE_MSEC = 900;

constexpr char WAIT_FOR_POSSESSION[] = "WaitForPossession";

// Ties break by name, so that the order between two tickets is total.
bool IsAhead(const FileLockValues &member, const FileLockValues &own) {
    if (member.lamportNumber != own.lamportNumber) {
        return member.lamportNumber < own.lamportNumber;
    }
    return member.memberName < own.memberName;
}

bool IsExclusive(const FileLockValues &values) {
    return values.lockType == FILE_LOCK_EXCLUSIVE;
}

bool WaitHasRunOut(const FileLockAttempt &attempt) {
    return attempt.msecMaxWaitTime != FILE_LOCK_INFINITE_WAIT && attempt.msecMaxWaitTime < attempt.waitTime;
}

void Pause(unsigned loopCounter, FileLockAttempt *attempt) {
    const uint32_t pause = FileLockPauseLength(loopCounter);
    attempt->waitTime += pause;
    for (uint32_t slept = 0; slept < pause; slept += SLEEP_SLICE_MSEC) {
        FileLockSleep(std::min(SLEEP_SLICE_MSEC, pause - slept));
    }
}

int MemberStatus(const LockDirectory &directory, const std::string &name) {
    struct stat status;
    return fstatat(directory.fd(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

// The name alone does not tell a member: numbers are drawn again, and processes whose seeds agree draw the
// same ones. Who takes a name anew has seen the waiter's ticket, so that the two tickets under the name
// differ and the new one is not ahead.
bool HasMadeWayForAnother(const LockDirectory &directory, const FileLockValues &member) {
    FileLockValues present;
    const int error = FileLockMemberValues(directory, member.memberName, &present);
    return error == ENOENT || (error == 0 && present.lamportNumber != member.lamportNumber);
}

int RunOut(const std::string &path, const FileLockValues &member, bool local) {
    if (local) {
        Log("FILE: %s timeout on '%s' due to a local process (%s)\n", WAIT_FOR_POSSESSION, path.c_str(),
            member.executionID.c_str());
    } else {
        Log("FILE: %s timeout on '%s' due to another machine (%s)\n", WAIT_FOR_POSSESSION, path.c_str(),
            member.machineID.c_str());
    }
    return EAGAIN;
}

int ClearDeadOwner(const LockDirectory &directory, const std::string &name, const std::string &path) {
    Warning("FILE: %s discarding file '%s'; invalid executionID.\n", WAIT_FOR_POSSESSION, path.c_str());
    return RemoveLockingFile(directory, name);
}

}  // namespace

uint32_t FileLockPauseLength(unsigned loopCounter) {
    if (loopCounter <= SHORT_PAUSES_UP_TO) {
        return SHORT_PAUSE_MSEC;
    }
    if (loopCounter >= LAST_LOOP_COUNTER) {
        return LONG_PAUSE_MSEC;
    }
    return SHORT_PAUSE_MSEC * loopCounter - 1900;
}

void FileLockSleep(uint32_t msec) {
    timespec rest{.tv_sec = msec / 1000, .tv_nsec = static_cast<long>(msec % 1000) * 1'000'000};
    while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
    }
}

int WaitForPossession(const FileLockValues &member, FileLockAttempt *attempt) {
    const FileLockValues &own = attempt->own;
    if (!IsAhead(member, own) || (!IsExclusive(member) && !IsExclusive(own))) {
        return 0;
    }
    const LockDirectory &directory = attempt->directory;
    const bool local = FileLockMachineIDMatch(own.machineID, member.machineID);
    const std::string path = directory.PathOf(member.memberName);
    for (unsigned loopCounter = 0;; loopCounter = std::min(loopCounter + 1, LAST_LOOP_COUNTER)) {
        if (attempt->msecMaxWaitTime == FILE_LOCK_TRYLOCK_WAIT) {
            return EAGAIN;
        }
        if (WaitHasRunOut(*attempt)) {
            return RunOut(path, member, local);
        }
        Pause(loopCounter, attempt);
        int error = MemberStatus(directory, member.memberName);
        if (error == ENOENT || (error == 0 && HasMadeWayForAnother(directory, member))) {
            return 0;
        }
        if (error == 0) {
            if (!local || FileLockValidOwner(member.executionID, member.payload)) {
                continue;
            }
            error = ClearDeadOwner(directory, member.memberName, path);
        }
        return error == EAGAIN ? RunOut(path, member, local) : error;
    }
}
