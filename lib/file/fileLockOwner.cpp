#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "lib/file/fileLockInternal.h"
#include "lib/file/posix.h"
#include "lib/log/log.h"
#include "lib/misc/owners.h"
#include "lib/string/str.h"

namespace {

constexpr size_t STAT_BUFFER_SIZE = 1024;
// Field 22 of the file is the start time; the state, field 3, is the first one behind the command name.
constexpr int START_TIME_FIELD_BEHIND_NAME = 20;
constexpr std::string_view CREATION_TIME_PREFIX = "pc=";

struct OwnProcess {
    std::atomic<int> pidOverride = 0;
    std::mutex mutex;  // guards the rest
    int pid = 0;       // whose time is known; another one after a fork
    unsigned long creationTime = 0;
};

OwnProcess ownProcess;

// Asks the kernel directly: the C library would change all threads of the process, and two threads that do
// this at once could not tell whom to go back to.
bool SetThreadEffectiveUser(uid_t user) {
    constexpr uid_t UNCHANGED = static_cast<uid_t>(-1);
    return syscall(SYS_setresuid, UNCHANGED, user, UNCHANGED) == 0;
}

// 0 or an errno value of kill(pid, 0), asked as the superuser where that is possible.
int ProbeProcess(int pid) {
    const uid_t formerUser = geteuid();
    const bool switched = formerUser != 0 && SetThreadEffectiveUser(0);
    const int error = kill(pid, 0) == 0 ? 0 : errno;
    if (switched) {
        SetThreadEffectiveUser(formerUser);
    }
    return error;
}

}  // namespace

int FileLockGetPid() {
    const int pidOverride = ownProcess.pidOverride.load(std::memory_order_relaxed);
    return pidOverride > 0 ? pidOverride : getpid();
}

void FileLockSetPidOverride(int pid) {
    ownProcess.pidOverride.store(pid, std::memory_order_relaxed);
}

// The command name may hold blanks and brackets, so the fields count from the last bracket.
unsigned long FileLockCreationTimeFromStat(const char *text) {
    const char *field = strrchr(text, ')');
    if (field == nullptr) {
        return 0;
    }
    field++;
    for (int i = 1; i < START_TIME_FIELD_BEHIND_NAME; i++) {
        field += strspn(field, " ");
        field += strcspn(field, " ");
    }
    unsigned long creationTime = 0;
    return sscanf(field, "%lu", &creationTime) == 1 ? creationTime : 0;
}

unsigned long FileLockProcessCreationTime(int pid) {
    char path[32];
    Str_Sprintf(path, sizeof path, "/proc/%d/stat", pid);
    const FileDescriptor file(Posix_Open(path, O_RDONLY | O_CLOEXEC));
    if (!file) {
        return 0;
    }
    char buffer[STAT_BUFFER_SIZE];
    const ssize_t received = read(file.get(), buffer, sizeof buffer - 1);
    if (received <= 0) {
        return 0;
    }
    buffer[received] = '\0';
    return FileLockCreationTimeFromStat(buffer);
}

unsigned long FileLockOwnCreationTime(int ownPid) {
    const std::lock_guard guard(ownProcess.mutex);
    if (ownProcess.pid != ownPid || ownProcess.creationTime == 0) {
        ownProcess.creationTime = FileLockProcessCreationTime(ownPid);
        ownProcess.pid = ownPid;
    }
    return ownProcess.creationTime;
}

bool IsValidProcess(int pid) {
    const int error = ProbeProcess(pid);
    if (error == ESRCH) {
        return false;
    }
    if (error != 0 && error != EPERM) {
        Log("FILE: %s Unexpected errno (%d), assuming valid.\n", __func__, error);
    }
    return true;
}

bool FileLockValidOwner(const std::string &executionID, const std::optional<std::string> &payload) {
    int pid = 0;
    if (sscanf(executionID.c_str(), "%d", &pid) != 1) {
        Warning("FILE: %s pid conversion error on %s. Assuming valid.\n", __func__, executionID.c_str());
        return true;
    }
    if (!IsValidProcess(pid)) {
        return false;
    }
    if (!payload.has_value() || !payload->starts_with(CREATION_TIME_PREFIX)) {
        return true;
    }
    unsigned long recordedTime = 0;
    if (sscanf(payload->c_str() + CREATION_TIME_PREFIX.size(), "%lu", &recordedTime) != 1) {
        Warning("FILE: %s payload conversion error on %s. Assuming valid.\n", __func__, payload->c_str());
        return true;
    }
    const unsigned long presentTime = FileLockProcessCreationTime(pid);
    return recordedTime == 0 || presentTime == 0 || recordedTime == presentTime;
}
