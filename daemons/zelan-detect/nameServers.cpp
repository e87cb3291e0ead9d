#include "daemons/zelan-detect/nameServers.h"

#include <sys/inotify.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "daemons/common/complain.h"

namespace {

constexpr const char *RESOLVER_FILE = "/etc/resolv.conf";

// Folders are watched, not the file: it is usually replaced by a rename.
void WatchFolder(int notices, std::string path) {
    path.erase(path.rfind('/') + 1);
    inotify_add_watch(notices, path.c_str(),
                      IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_CREATE);
}

}  // namespace

bool NameServers::Open() {
    notices_.reset(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!notices_) {
        Complain("inotify: %s", strerror(errno));
        return false;
    }
    WatchFolders();
    return true;
}

// Where resolver services keep the file elsewhere, what stands in /etc is a link to it. Watching a folder
// again changes nothing.
void NameServers::WatchFolders() {
    WatchFolder(notices_.get(), RESOLVER_FILE);
    MallocString target(realpath(RESOLVER_FILE, nullptr));
    if (target != nullptr) {
        WatchFolder(notices_.get(), target.get());
    }
}

void NameServers::TakeNotices() {
    std::array<char, 4096> ignored;
    while (read(notices_.get(), ignored.data(), ignored.size()) > 0) {
    }
    WatchFolders();
}

std::string NameServers::Read() const {
    std::string servers;
    char line[512];
    FileStream file(fopen(RESOLVER_FILE, "re"));
    while (file != nullptr && fgets(line, sizeof line, file.get()) != nullptr) {
        char keyword[16];
        char address[64];
        if (sscanf(line, " %15s %63s", keyword, address) == 2 && std::string_view(keyword) == "nameserver") {
            servers += (servers.empty() ? "" : ", ") + std::string(address);
        }
    }
    return servers.empty() ? "none" : servers;
}
