#include "apps/zelan/posix/harbrelctl/execution/commit.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

#include "apps/zelan/posix/harbrelctl/execution/writeChange.h"
#include "apps/zelan/posix/harbrelctl/model/library.h"
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

std::string Subject(const RecordChange &change) {
    return RecordText(change.key, change.after ? *change.after : *change.before);
}

// Writes one after another; the number of those that are written.
size_t WriteInTurn(const std::vector<RecordChange> &changes, const std::string &log, std::string *reason) {
    for (size_t count = 0; count < changes.size(); count++) {
        const LogMark mark(log);
        if (!WriteChange(changes[count])) {
            *reason = "\"" + Subject(changes[count]) + "\" is refused: " + mark.LastReason();
            return count;
        }
    }
    return changes.size();
}

bool TakeBack(const std::vector<RecordChange> &changes, size_t count) {
    bool good = true;
    while (count-- > 0) {
        good = WriteChange(Inverse(changes[count])) && good;
    }
    return good;
}

}  // namespace

bool Commit(const std::vector<RecordChange> &changes, const std::string &log, std::string *reason) {
    if (changes.empty()) {
        return true;
    }
    if (!SaveWayBack(changes, reason)) {
        return false;
    }
    const size_t written = WriteInTurn(changes, log, reason);
    // With the way back still there, the next change would take this one for interrupted.
    if (written == changes.size() && ForgetWayBack(reason)) {
        return true;
    }
    if (!TakeBack(changes, written)) {
        *reason += "; and what was written could not be taken back, which the next change tries again";
        return false;
    }
    std::string ignored;
    ForgetWayBack(&ignored);
    return false;
}

bool IsInterrupted() {
    return access(WAY_BACK, F_OK) == 0;
}

bool Recover(const std::string &log, std::string *reason) {
    std::ifstream file(WAY_BACK);
    std::stringstream text;
    text << file.rdbuf();
    const auto changes = ReadChangesJson(text.str());
    if (!changes) {
        *reason = std::string(WAY_BACK) +
                  " tells how to take back a change that was interrupted, and cannot be "
                  "read: put the database right and remove it";
        return false;
    }
    // What was not written yet is not there to be removed.
    for (const RecordChange &change : *changes) {
        const LogMark mark(log);
        if (!WriteChange(change) && change.after) {
            *reason = "\"" + Subject(change) + "\" is refused: " + mark.LastReason();
            return false;
        }
    }
    return ForgetWayBack(reason);
}
