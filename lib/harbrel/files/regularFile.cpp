#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "lib/file/posix.h"
#include "lib/harbrel/files/files.h"
#include "lib/misc/owners.h"

namespace {

FileDescriptor OpenAtOnce(const char *path, int flags, mode_t mode, bool folderToo) {
    FileDescriptor file(Posix_Open(path, flags | O_NONBLOCK | O_CLOEXEC, mode));
    struct stat status;
    if (file && fstat(file.get(), &status) == 0 && !S_ISREG(status.st_mode) &&
        !(folderToo && S_ISDIR(status.st_mode))) {
        file.reset();
        errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    }
    return file;
}

}  // namespace

int HBLOpenRegular(const char *path, int flags, mode_t mode) {
    return OpenAtOnce(path, flags, mode, false).release();
}

int HBLOpenToRead(const char *path) {
    return OpenAtOnce(path, O_RDONLY, 0, true).release();
}

FILE *HBLFopenToRead(const char *path) {
    return StreamOf(FileDescriptor(HBLOpenToRead(path)), "r").release();
}

FILE *HBLFopenRegular(const char *path, const char *mode) {
    const bool both = mode[1] == '+';
    int flags = both ? O_RDWR : O_WRONLY;
    switch (mode[0]) {
        case 'r':
            flags = both ? O_RDWR : O_RDONLY;
            break;
        case 'w':
            flags |= O_CREAT | O_TRUNC;
            break;
        default:
            flags |= O_CREAT | O_APPEND;
            break;
    }
    FileDescriptor file(HBLOpenRegular(path, flags, 0666));
    return StreamOf(std::move(file), mode).release();
}
