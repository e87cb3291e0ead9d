#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "lib/file/posix.h"
#include "lib/harbrel/files/files.h"
#include "lib/misc/owners.h"

int HBLOpenRegular(const char *path, int flags, mode_t mode) {
    FileDescriptor file(Posix_Open(path, flags | O_NONBLOCK | O_CLOEXEC, mode));
    struct stat status;
    if (file && fstat(file.get(), &status) == 0 && !S_ISREG(status.st_mode)) {
        file.reset();
        errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    }
    return file.release();
}

FILE *HBLFopenRegular(const char *path, const char *mode) {
    const bool reads = mode[0] == 'r';
    const int access = reads ? O_RDONLY : strcmp(mode, "w+") == 0 ? O_RDWR : O_WRONLY;
    FileDescriptor file(HBLOpenRegular(path, reads ? access : access | O_CREAT | O_TRUNC, 0666));
    return StreamOf(std::move(file), mode).release();
}
