#include "apps/zelan/posix/harbrelctl/execution/commit.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

#include "apps/zelan/posix/harbrelctl/execution/writeChange.h"
#include "apps/zelan/posix/harbrelctl/model/library.h"
#include "apps/zelan/posix/harbrelctl/model/readHost.h"
#include "apps/zelan/posix/harbrelctl/plan/plan.h"
#include "lib/misc/owners.h"

namespace {

constexpr const char *FOLDER = "/etc/orvane";
constexpr const char *WAY_BACK = "/etc/orvane/harbrelctl.undo";
constexpr const char *WAY_BACK_NEW = "/etc/orvane/harbrelctl.undo.new";

bool WriteAll(int file, const std::string &text) {
    size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = write(file, text.data() + written, text.size() - written);
        if (count < 0 && errno != EINTR) {
            return false;
        }
        written += count > 0 ? static_cast<size_t>(count) : 0;
    }
    return fsync(file) == 0;
}

// What a loss of power leaves: the contents of a file, the names of a folder.
bool Sync(const char *path) {
    const FileDescriptor file(open(path, O_RDONLY | O_CLOEXEC));
    return file && fsync(file.get()) == 0;
}

// The records are on the disk before the way back is gone from it, and that is gone before anything else
// happens: a loss of power leaves all of the change or none of it.
bool ForgetWayBack(std::string *reason) {
    Sync(DATABASE);
    Sync(FOLDER);
    if (unlink(WAY_BACK) != 0 && errno != ENOENT) {
        *reason = std::string(WAY_BACK) + " cannot be removed: " + strerror(errno);
        return false;
    }
    Sync(FOLDER);
    return true;
}

bool SaveWayBack(const std::vector<RecordChange> &changes, std::string *reason) {
    std::vector<RecordChange> inverse;
    for (auto change = changes.rbegin(); change != changes.rend(); ++change) {
        inverse.push_back(Inverse(*change));
    }
    unlink(WAY_BACK_NEW);
    const FileDescriptor file(open(WAY_BACK_NEW, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (file && WriteAll(file.get(), ChangesJson(inverse)) && rename(WAY_BACK_NEW, WAY_BACK) == 0 &&
        Sync(FOLDER)) {
        return true;
    }
    *reason = std::string(WAY_BACK) + " cannot be written: " + strerror(errno);
    unlink(WAY_BACK_NEW);
    unlink(WAY_BACK);
    return false;
}

std::optional<std::vector<RecordChange>> ReadWayBack() {
    std::ifstream file(WAY_BACK);
    std::stringstream text;
    text << file.rdbuf();
    return ReadChangesJson(text.str());
}

bool IsMade(const Records &records, const RecordChange &change) {
    const auto record = records.find(change.key);
    return change.after ? record != records.end() && record->second == *change.after
                        : record == records.end();
}

// Nobody knows how far an interrupted change has come.
bool WriteMissing(const std::vector<RecordChange> &changes, std::string *reason) {
    Host now;
    if (!ReadHost(READ_CONFIG, &now, reason)) {
        return false;
    }
    const Records records = RecordsOf(now.config);
    std::vector<RecordChange> missing;
    std::copy_if(changes.begin(), changes.end(), std::back_inserter(missing),
                 [&records](const RecordChange &change) { return !IsMade(records, change); });
    return WriteChanges(missing, now.paths.log, reason);
}

}  // namespace

bool Commit(const std::vector<RecordChange> &changes, const std::string &log, std::string *reason) {
    const auto write = [&](std::string *refusal) { return WriteChanges(changes, log, refusal); };
    return changes.empty() || CommitBy(changes, write, reason);
}

bool CommitBy(const std::vector<RecordChange> &changes, const WriteInOwnWay &write, std::string *reason) {
    if (!SaveWayBack(changes, reason)) {
        return false;
    }
    // With the way back still there, the next change would take this one for interrupted.
    if (write(reason) && ForgetWayBack(reason)) {
        return true;
    }
    std::string ignored;
    if (!Recover(&ignored)) {
        *reason += "; and what was written could not be taken back, which the next change tries again";
    }
    return false;
}

bool AreMade(const std::vector<RecordChange> &changes) {
    Host now;
    std::string unread;
    if (!ReadHost(READ_CONFIG, &now, &unread)) {
        return false;
    }
    const Records records = RecordsOf(now.config);
    return std::all_of(changes.begin(), changes.end(),
                       [&records](const RecordChange &change) { return IsMade(records, change); });
}

bool IsInterrupted() {
    return access(WAY_BACK, F_OK) == 0;
}

bool Recover(std::string *reason) {
    const auto changes = ReadWayBack();
    if (!changes) {
        *reason = std::string(WAY_BACK) +
                  " tells how to take back a change that was interrupted, and cannot be "
                  "read: put the database right and remove it";
        return false;
    }
    return WriteMissing(*changes, reason) && ForgetWayBack(reason);
}
