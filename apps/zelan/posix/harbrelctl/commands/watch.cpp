#include <sys/stat.h>

#include <cstdio>

#include "apps/zelan/posix/harbrelctl/commands/commands.h"
#include "apps/zelan/posix/harbrelctl/commands/context.h"
#include "apps/zelan/posix/harbrelctl/execution/refresh.h"
#include "apps/zelan/posix/harbrelctl/model/surroundings.h"
#include "apps/zelan/posix/harbrelctl/model/watcher.h"
#include "apps/zelan/posix/harbrelctl/output/eventText.h"
#include "apps/zelan/posix/harbrelctl/output/report.h"

namespace {

bool SameFile(const struct stat &a, const struct stat &b) {
    return a.st_ino == b.st_ino && a.st_size == b.st_size && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
           a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

// Has the library read the database again when the file is another than last time.
void FollowDatabase(struct stat *seen) {
    struct stat now = {};
    if (stat(DATABASE, &now) == 0 && !SameFile(now, *seen) && Refresh()) {
        *seen = now;
    }
}

bool Look(Snapshot *snapshot) {
    std::string error;
    KernelView kernel;
    *snapshot = Snapshot();
    if (!ReadHost(READ_ALL, &snapshot->host, &error) || !ReadKernel(&kernel)) {
        return false;
    }
    snapshot->foreign = ForeignSubnets(snapshot->host, kernel);
    for (const int network : NetworksWithAnything(snapshot->host)) {
        snapshot->details[network] = ReadDetails(snapshot->host, kernel, network);
    }
    return true;
}

// False when nobody reads any more.
bool PrintEvents(const Arguments &arguments, const std::vector<Event> &events) {
    const time_t now = time(nullptr);
    for (const Event &event : events) {
        Print((arguments.json ? EventJson(event, now) : EventText(event, now)).c_str());
    }
    return fflush(stdout) == 0;
}

}  // namespace

int RunWatch(const Arguments &arguments) {
    const Library library;
    Snapshot before;
    struct stat seen = {};
    stat(DATABASE, &seen);
    if (!library || !Look(&before)) {
        Complain("%s", library ? "the host cannot be read" : library.error().c_str());
        return STATUS_FAILED;
    }
    const Watcher watcher(before.host);
    if (!watcher) {
        Complain("the kernel does not tell of changes");
        return STATUS_FAILED;
    }
    while (true) {
        watcher.Wait();
        FollowDatabase(&seen);
        Snapshot after;
        if (!Look(&after)) {
            continue;
        }
        if (!PrintEvents(arguments, Compare(before, after))) {
            return STATUS_FAILED;
        }
        before = std::move(after);
        watcher.Follow(before.host);
    }
}
