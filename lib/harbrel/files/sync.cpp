#include "lib/harbrel/files/sync.h"

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "lib/file/posix.h"
#include "lib/harbrel/files/files.h"
#include "lib/misc/owners.h"

bool HBLSyncFile(const char *path) {
    const FileDescriptor file(HBLOpenRegular(path, O_RDONLY, 0));
    return file && fsync(file.get()) == 0;
}

bool HBLSyncFolderOf(const char *path) {
    const std::string text(path);
    const size_t slash = text.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : text.substr(0, slash + 1);
    const FileDescriptor entries(Posix_Open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0));
    return entries && fsync(entries.get()) == 0;
}
