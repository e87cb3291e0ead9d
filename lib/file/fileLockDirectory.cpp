#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "lib/file/fileLockInternal.h"
#include "lib/file/posix.h"
#include "lib/unicode/unicode.h"

namespace {

constexpr mode_t LOCK_DIRECTORY_MODE = 0777;
constexpr size_t NAMES_BUFFER_SIZE = 4096;

int ErrnoOf(int result) {
    return result == 0 ? 0 : errno;
}

// Whether whatever is in the directory may be taken for what the lock's users have left there.
int CheckOwner(int directory) {
    struct stat status;
    if (fstat(directory, &status) != 0) {
        return errno;
    }
    return status.st_uid == 0 || status.st_uid == geteuid() ? 0 : EPERM;
}

int DiscardIn(int directory, const char *name, int unlinkFlags) {
    const int error = CheckOwner(directory);
    return error != 0 ? error : ErrnoOf(unlinkat(directory, name, unlinkFlags));
}

void AddNames(const char *items, size_t size, std::vector<std::string> *names) {
    for (const char *end = items + size; items < end;) {
        const auto *item = reinterpret_cast<const dirent64 *>(items);
        if (strcmp(item->d_name, ".") != 0 && strcmp(item->d_name, "..") != 0) {
            names->push_back(item->d_name);
        }
        items += item->d_reclen;
    }
}

}  // namespace

int LockDirectory::FindFolder() {
    const size_t slash = path_.rfind('/');
    name_.reset(
        static_cast<char *>(Unicode_GetAllocBytes(path_.c_str() + slash + 1, STRING_ENCODING_CURRENT)));
    if (name_ == nullptr) {
        return EINVAL;
    }
    folder_.reset(Posix_Open(path_.substr(0, slash + 1).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    return folder_ ? 0 : errno;
}

int LockDirectory::Open() {
    constexpr int FLAGS = O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    directory_.reset(openat(folder_.get(), name_.get(), O_RDONLY | FLAGS));
    if (!directory_ && errno == EACCES) {  // where nothing may be read, there may still be worked
        directory_.reset(openat(folder_.get(), name_.get(), O_PATH | FLAGS));
    }
    return directory_ ? 0 : errno;
}

int LockDirectory::Make() const {
    return ErrnoOf(mkdirat(folder_.get(), name_.get(), LOCK_DIRECTORY_MODE));
}

int LockDirectory::Type(mode_t *type) const {
    struct stat status;
    if (fstatat(folder_.get(), name_.get(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno;
    }
    *type = status.st_mode & S_IFMT;
    return 0;
}

int LockDirectory::Discard() const {
    return DiscardIn(folder_.get(), name_.get(), 0);
}

void LockDirectory::RemoveIfEmpty() const {
    unlinkat(folder_.get(), name_.get(), AT_REMOVEDIR);
}

// Read from its start through the descriptor that is held. One that may only be worked in has nothing to
// seek.
int LockDirectory::Names(std::vector<std::string> *names) const {
    if (lseek(directory_.get(), 0, SEEK_SET) != 0) {
        return errno == EBADF ? EACCES : errno;
    }
    alignas(dirent64) char items[NAMES_BUFFER_SIZE];
    for (;;) {
        const ssize_t size = getdents64(directory_.get(), items, sizeof items);
        if (size <= 0) {
            return size == 0 ? 0 : errno;
        }
        AddNames(items, static_cast<size_t>(size), names);
    }
}

int LockDirectory::Discard(const char *name, int unlinkFlags) const {
    return DiscardIn(directory_.get(), name, unlinkFlags);
}
