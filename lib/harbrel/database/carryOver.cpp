#include "lib/harbrel/database/carryOver.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "lib/err/errText.h"
#include "lib/harbrel/files/files.h"
#include "lib/misc/owners.h"

namespace {

constexpr int LOOKS_AT_A_TORN_LINE = 100;  // a millisecond apart

// What stands behind the first `seen` bytes.
std::string Behind(int file, uint64_t seen) {
    struct stat status = {};
    if (fstat(file, &status) != 0 || static_cast<uint64_t>(status.st_size) <= seen) {
        return {};
    }
    std::string lines(static_cast<uint64_t>(status.st_size) - seen, '\0');
    const ssize_t got = pread(file, lines.data(), lines.size(), static_cast<off_t>(seen));
    lines.resize(got > 0 ? static_cast<size_t>(got) : 0);
    return lines;
}

// Whole lines only: one that is being written is waited for, and one that failed is left out.
std::string WholeLinesBehind(int file, uint64_t seen) {
    std::string lines = Behind(file, seen);
    for (int look = 0; look < LOOKS_AT_A_TORN_LINE && !lines.empty() && lines.back() != '\n'; ++look) {
        const timespec pause = {.tv_sec = 0, .tv_nsec = 1'000'000};
        nanosleep(&pause, nullptr);
        lines = Behind(file, seen);
    }
    lines.resize(lines.rfind('\n') + 1);
    return lines;
}

// All of it or nothing: a part of a line would read as another record. Nobody else writes to a new file while
// we hold the lock.
bool AppendWhole(int file, const std::string &lines) {
    const off_t end = lseek(file, 0, SEEK_END);
    if (end < 0) {
        return false;
    }
    errno = ENOSPC;  // what a short write does not tell
    if (write(file, lines.data(), lines.size()) == static_cast<ssize_t>(lines.size())) {
        return true;
    }
    const int reason = errno;
    if (ftruncate(file, end) == 0) {
        errno = reason;
    }
    return false;
}

}  // namespace

void NetCfgCarryOver(const HBLNetworkConfigurationDB *db, FunctionLog log, int former) {
    std::string lines = WholeLinesBehind(former, db->fileIdentity.size);
    if (db->fileIdentity.endsInsideLine != 0 && lines.starts_with('\n')) {
        lines.erase(0, 1);  // it ended a line of the former file
    }
    if (lines.empty()) {
        return;
    }
    const FileDescriptor file(HBLOpenRegular(db->path, O_WRONLY | O_APPEND, 0));
    if (!file || !AppendWhole(file.get(), lines)) {
        log(LOG_ERR, "Failed to write changes of another process to database file: %s, error: %s", db->path,
            Err_ErrnoText(errno));
        return;
    }
    log(LOG_INFO, "Changes of another process written to database file: %s", db->path);
}
