#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "lib/file/fileLock.h"
#include "lib/file/fileLockInternal.h"
#include "lib/file/posix.h"
#include "lib/log/log.h"

namespace {

constexpr uint32_t SHORT_PAUSE_MSEC = 100;
constexpr uint32_t LONG_PAUSE_MSEC = 2000;
constexpr unsigned SHORT_PAUSES_UP_TO = 20;
constexpr unsigned LAST_LOOP_COUNTER = 40;
constexpr uint32_t SLEEP_SLICE_MSEC = 900;

const char WAIT_FOR_POSSESSION[] = "WaitForPossession";

// Ties break by name, so that the order between two tickets is total.
bool IsAhead(const FileLockValues &member, const FileLockValues &own) {
    if (member.lamportNumber != own.lamportNumber) {
        return member.lamportNumber < own.lamportNumber;
    }
    return strcmp(member.memberName, own.memberName) < 0;
}

bool IsExclusive(const FileLockValues &values) {
    return strcmp(values.lockType, FILE_LOCK_EXCLUSIVE) == 0;
}

bool WaitHasRunOut(const FileLockValues &own) {
    return own.msecMaxWaitTime != FILE_LOCK_INFINITE_WAIT && own.msecMaxWaitTime < own.waitTime;
}

void Pause(unsigned loopCounter, FileLockValues *own) {
    const uint32_t pause = FileLockPauseLength(loopCounter);
    own->waitTime += pause;
    for (uint32_t slept = 0; slept < pause; slept += SLEEP_SLICE_MSEC) {
        FileLockSleep(std::min(SLEEP_SLICE_MSEC, pause - slept));
    }
}

int MemberStatus(const std::string &path) {
    struct stat status;
    return Posix_Stat(path.c_str(), &status) == 0 ? 0 : errno;
}

// The name alone does not tell a member: numbers are drawn again, and processes whose seeds agree draw the
// same ones. Who takes a name anew has seen the waiter's ticket, so that the two tickets under the name
// differ and the new one is not ahead.
bool HasMadeWayForAnother(const char *lockDir, const char *name, const FileLockValues &member) {
    char buffer[FILE_LOCK_MEMBER_SIZE + 1];
    FileLockValues present{};
    const int error = FileLockMemberValues(lockDir, name, buffer, FILE_LOCK_MEMBER_SIZE, &present);
    return error == ENOENT || (error == 0 && present.lamportNumber != member.lamportNumber);
}

int RunOut(const std::string &path, const FileLockValues &member, bool local) {
    if (local) {
        Log("FILE: %s timeout on '%s' due to a local process (%s)\n", WAIT_FOR_POSSESSION, path.c_str(),
            member.executionID);
    } else {
        Log("FILE: %s timeout on '%s' due to another machine (%s)\n", WAIT_FOR_POSSESSION, path.c_str(),
            member.machineID);
    }
    return EAGAIN;
}

int ClearDeadOwner(const char *lockDir, const char *name, const std::string &path) {
    Warning("FILE: %s discarding file '%s'; invalid executionID.\n", WAIT_FOR_POSSESSION, path.c_str());
    return RemoveLockingFile(lockDir, name);
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

int WaitForPossession(const char *lockDir, const char *name, const FileLockValues *member,
                      FileLockValues *own) {
    if (!IsAhead(*member, *own) || (!IsExclusive(*member) && !IsExclusive(*own))) {
        return 0;
    }
    const bool local = FileLockMachineIDMatch(own->machineID, member->machineID);
    const std::string path = std::string(lockDir) + "/" + name;
    for (unsigned loopCounter = 0;; loopCounter = std::min(loopCounter + 1, LAST_LOOP_COUNTER)) {
        if (own->msecMaxWaitTime == FILE_LOCK_TRYLOCK_WAIT) {
            return EAGAIN;
        }
        if (WaitHasRunOut(*own)) {
            return RunOut(path, *member, local);
        }
        Pause(loopCounter, own);
        int error = MemberStatus(path);
        if (error == ENOENT || (error == 0 && HasMadeWayForAnother(lockDir, name, *member))) {
            return 0;
        }
        if (error == 0) {
            if (!local || FileLockValidOwner(member->executionID, member->payload)) {
                continue;
            }
            error = ClearDeadOwner(lockDir, name, path);
        }
        return error == EAGAIN ? RunOut(path, *member, local) : error;
    }
}
