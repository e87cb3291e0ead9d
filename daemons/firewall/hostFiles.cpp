#include "daemons/firewall/hostFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string_view>

#include "daemons/common/complain.h"
#include "daemons/common/file.h"
#include "daemons/common/options.h"
#include "daemons/common/switch.h"
#include "daemons/common/traces.h"

namespace {

constexpr const char *EDIT_FILE = "host-table.lock";
constexpr std::string_view NAT_PREFIX = "nat-share-";

std::string PathOf(const std::string &name) {
    return std::string(WATCH_FOLDER) + "/" + name;
}

FileDescriptor Open(const std::string &name, int flags) {
    return FileDescriptor(open(PathOf(name).c_str(), flags | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR));
}

struct flock WholeFile(short type) {
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    return lock;
}

bool LockUntil(const FileDescriptor &file, std::chrono::steady_clock::time_point end) {
    constexpr int POLL_MILLISECONDS = 2;
    struct flock lock = WholeFile(F_WRLCK);
    while (fcntl(file.get(), F_OFD_SETLK, &lock) != 0) {
        if ((errno != EAGAIN && errno != EACCES && errno != EINTR) ||
            std::chrono::steady_clock::now() >= end) {
            return false;
        }
        poll(nullptr, 0, POLL_MILLISECONDS);
    }
    return true;
}

}  // namespace

std::string HostFiles_OfNat(int network) {
    return std::string(NAT_PREFIX) + std::to_string(network);
}

std::vector<int> HostFiles_NatNetworks() {
    std::vector<int> networks;
    Directory folder(opendir(WATCH_FOLDER));
    for (const dirent *entry = folder ? readdir(folder.get()) : nullptr; entry != nullptr;
         entry = readdir(folder.get())) {
        std::string_view name = entry->d_name;
        int network = 0;
        if (name.starts_with(NAT_PREFIX) &&
            Options_Number(name.substr(NAT_PREFIX.size()), SWITCH_MAX_NETWORK, &network)) {
            networks.push_back(network);
        }
    }
    return networks;
}

HostEdit::HostEdit() : file_(Open(EDIT_FILE, O_RDWR | O_CREAT)) {
    constexpr std::chrono::seconds PATIENCE{10};
    if (!file_ || !LockUntil(file_, std::chrono::steady_clock::now() + PATIENCE)) {
        Complain("lock on %s: %s", PathOf(EDIT_FILE).c_str(), strerror(errno));
        file_.reset();
    }
}

FileDescriptor HostFiles_Hold(const std::string &name) {
    FileDescriptor file = Open(name, O_RDONLY | O_CREAT);
    struct flock lock = WholeFile(F_RDLCK);
    if (!file || fcntl(file.get(), F_OFD_SETLK, &lock) != 0) {
        Complain("cannot hold %s: %s", PathOf(name).c_str(), strerror(errno));
        file.reset();
    }
    return file;
}

bool HostFiles_IsHeld(const std::string &name) {
    FileDescriptor file = Open(name, O_RDONLY);
    struct flock lock = WholeFile(F_WRLCK);
    return file && fcntl(file.get(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

std::string HostFiles_Read(const std::string &name) {
    std::string text;
    File_Read(PathOf(name).c_str(), &text);
    return text;
}

// In place: the locks are on the file, not on its name.
bool HostFiles_Write(const std::string &name, const std::string &text) {
    FileDescriptor file = Open(name, O_WRONLY | O_CREAT | O_TRUNC);
    bool written = file && write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (!written) {
        Complain("%s: %s", PathOf(name).c_str(), strerror(errno));
    }
    return written;
}

void HostFiles_Remove(const std::string &name) {
    unlink(PathOf(name).c_str());
}
