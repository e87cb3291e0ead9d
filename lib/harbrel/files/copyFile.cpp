#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "lib/err/errText.h"
#include "lib/file/posix.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/files/files.h"
#include "lib/harbrel/files/sync.h"
#include "lib/misc/owners.h"

namespace {

constexpr size_t COPY_BLOCK = 1024;

// After a short write the rest is tried again, so that a failure leaves its reason in errno.
bool WriteBlock(int file, const char *block, size_t length) {
    while (length > 0) {
        const ssize_t written = TEMP_FAILURE_RETRY(write(file, block, length));
        if (written <= 0) {
            return false;
        }
        block += written;
        length -= static_cast<size_t>(written);
    }
    return true;
}

}  // namespace

bool HBLCopyFile(const char *sourcePath, const char *destinationPath) {
    if (sourcePath == nullptr || destinationPath == nullptr) {
        HBLLog(LOG_ERR, __func__, "Invalid arguments");
        return false;
    }
    const bool isNew = Posix_Access(destinationPath, F_OK) != 0;
    HBLCreateFile(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, destinationPath);  // a new one gets its mode here
    const FileDescriptor source(HBLOpenToRead(sourcePath));
    if (!source) {
        HBLLog(LOG_ERR, __func__, "Could not open source file: %s, error: %s", sourcePath,
               Err_LastErrnoText());
        return false;
    }
    const FileDescriptor destination(HBLOpenRegular(destinationPath, O_WRONLY | O_CREAT | O_TRUNC, 0666));
    if (!destination) {
        HBLLog(LOG_ERR, __func__, "Could not open destination file: %s, error: %s", destinationPath,
               Err_LastErrnoText());
        return false;
    }
    char block[COPY_BLOCK];
    ssize_t got = 0;
    while ((got = TEMP_FAILURE_RETRY(read(source.get(), block, sizeof block))) > 0) {
        if (!WriteBlock(destination.get(), block, static_cast<size_t>(got))) {
            HBLLog(LOG_ERR, __func__, "Writing to destination file: %s failed, error: %s", destinationPath,
                   Err_LastErrnoText());
            return false;
        }
    }
    if (got == 0 && fsync(destination.get()) != 0) {
        HBLLog(LOG_ERR, __func__, "Writing to destination file: %s failed, error: %s", destinationPath,
               Err_LastErrnoText());
        return false;
    }
    if (got < 0) {
        HBLLog(LOG_ERR, __func__, "Reading from source file: %s failed, error: %s", sourcePath,
               Err_LastErrnoText());
        return false;
    }
    if (isNew) {
        HBLSyncFolderOf(destinationPath);
    }
    HBLLog(LOG_INFO2, __func__, "Finished reading from source file: %s", sourcePath);
    return true;
}
