#include "apps/zelan/posix/harbrelCLI/settingsBackup.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "lib/misc/owners.h"

namespace {

constexpr unsigned MAX_TRIES = 100;

}  // namespace

SettingsBackup::SettingsBackup() {
    for (unsigned tries = 0; tries < MAX_TRIES; tries++) {
        reserved_ = Reserve();
        if (reserved_ || errno != EEXIST) {
            return;
        }
    }
}

SettingsBackup::~SettingsBackup() {
    if (reserved_) {
        rmdir(LockFolder().c_str());
        unlink(path_.c_str());
    }
}

// EEXIST when somebody was quicker with the folder.
bool SettingsBackup::Reserve() {
    path_ = "/tmp/orvane.XXXXXX";
    if (!FileDescriptor(mkostemp(path_.data(), O_CLOEXEC))) {
        return false;
    }
    if (mkdir(LockFolder().c_str(), S_IRWXU) != 0) {
        const int reason = errno;
        unlink(path_.c_str());
        errno = reason;
        return false;
    }
    return true;
}
