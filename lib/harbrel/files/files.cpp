#include "lib/harbrel/files/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <cstring>

#include "lib/err/errText.h"
#include "lib/file/posix.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/files/fileDB.h"
#include "lib/harbrel/files/fileTypes.h"
#include "lib/harbrel/files/sync.h"
#include "lib/misc/owners.h"
#include "lib/string/str.h"

namespace {

constexpr mode_t DIRECTORY_MODE = 0755;
constexpr mode_t FILE_MODE = 0665;
constexpr mode_t DEVICE_MODE = 0600;
constexpr unsigned ZELAN_MAJOR = 119;

// Clears the process's file-creation mask for the object's life, so that modes come out exact.
class ClearedUmask {
  public:
    ClearedUmask() : former_(umask(0)) {}
    ~ClearedUmask() { umask(former_); }
    ClearedUmask(const ClearedUmask &) = delete;
    ClearedUmask &operator=(const ClearedUmask &) = delete;

  private:
    mode_t former_;
};

bool TakeCustomPath(FunctionLog log, const char *customPath, char path[HBL_PATH_SIZE]) {
    if (customPath == nullptr) {
        log(LOG_ERR, "Invalid arguments");
        return false;
    }
    const size_t length = strlen(customPath);
    if (length >= HBL_PATH_SIZE) {
        log(LOG_ERR, "Custom file name %s is longer than allowed %zu characters", customPath, HBL_PATH_SIZE);
        return false;
    }
    memcpy(path, customPath, length + 1);
    return true;
}

// The path that vnet, type and custom path stand for; failures are logged there.
bool FormPath(FunctionLog log, uint32_t vnet, uint32_t fileType, const char *customPath,
              char path[HBL_PATH_SIZE]) {
    if (fileType == HBL_FILE_CUSTOM) {
        return TakeCustomPath(log, customPath, path);
    }
    if (!HBLGetFileName(vnet, fileType, path, HBL_PATH_SIZE)) {
        log(LOG_ERR, "Cannot construct file name");
        return false;
    }
    return true;
}

// The row of a type that can be tested, made and removed; null, without a message, for any other number.
const HBLFileTypeRow *FindUsableType(uint32_t fileType) {
    const HBLFileTypeRow *const row = HBLFindFileType(fileType);
    return row != nullptr && row->kind != HBLFileKind::NameOnly ? row : nullptr;
}

bool MakeDirectory(FunctionLog log, const char *path) {
    if (Posix_Mkdir(path, DIRECTORY_MODE) == 0) {
        HBLSyncFolderOf(path);
        log(LOG_INFO2, "Directory: %s created", path);
        return true;
    }
    if (errno == EEXIST) {
        log(LOG_WRN, "Directory: %s already exists", path);
        return true;
    }
    log(LOG_ERR, "Cannot create Directory: %s because of: %s", path, Err_LastErrnoText());
    return false;
}

bool MakeDevice(FunctionLog log, const char *path, uint32_t vnet) {
    if (Posix_Mknod(path, S_IFCHR | DEVICE_MODE, makedev(ZELAN_MAJOR, vnet)) == 0 || errno == EEXIST) {
        return true;
    }
    log(LOG_ERR, "Creating zelan device failed, error: %s", Err_LastErrnoText());
    return false;
}

bool MakeRegularFile(FunctionLog log, const char *path) {
    // Without waiting, should a FIFO stand there.
    const FileDescriptor file(Posix_Open(path, O_CREAT | O_NONBLOCK | O_CLOEXEC, FILE_MODE));
    if (!file) {
        log(LOG_ERR, "Cannot create File: %s because of: %s", path, Err_LastErrnoText());
        return false;
    }
    log(LOG_INFO2, "File: %s created", path);
    return true;
}

bool Make(FunctionLog log, HBLFileKind kind, const char *path, uint32_t vnet) {
    const ClearedUmask exactModes;
    switch (kind) {
        case HBLFileKind::Directory:
            return MakeDirectory(log, path);
        case HBLFileKind::Device:
            return MakeDevice(log, path, vnet);
        default:
            return MakeRegularFile(log, path);
    }
}

enum class Recorded { Yes, Refused, NoMemory };

Recorded RecordRegularFile(const char *path) {
    struct stat status;
    if (Posix_Stat(path, &status) != 0) {
        return HBLFileDBAddFile(path, nullptr) ? Recorded::Yes : Recorded::Refused;
    }
    const MallocString time(Str_Asprintf(nullptr, "%ld", static_cast<long>(status.st_mtime)));
    if (time == nullptr) {
        return Recorded::NoMemory;
    }
    return HBLFileDBAddFile(path, time.get()) ? Recorded::Yes : Recorded::Refused;
}

bool Record(FunctionLog log, HBLFileKind kind, const char *path) {
    Recorded result = Recorded::Yes;
    if (kind == HBLFileKind::Directory) {
        result = HBLFileDBAddDirectory(path) ? Recorded::Yes : Recorded::Refused;
    } else if (kind == HBLFileKind::Device) {
        result = HBLFileDBAddFile(path, nullptr) ? Recorded::Yes : Recorded::Refused;
    } else {
        result = RecordRegularFile(path);
    }
    if (result == Recorded::NoMemory) {
        log(LOG_ERR, "Failed to allocate memory for mtime, error: %s", Err_LastErrnoText());
    } else if (result == Recorded::Refused) {
        log(LOG_ERR, "Error adding configuration record for creation of file: %s", path);
    }
    return result == Recorded::Yes;
}

bool RemoveDirectory(FunctionLog log, const char *path) {
    if (Posix_Rmdir(path) == 0) {
        HBLSyncFolderOf(path);
        log(LOG_INFO2, "Directory: %s deleted", path);
    } else if (errno == ENOENT) {
        log(LOG_WRN, "Directory %s does not exist", path);
    } else {
        log(LOG_ERR, "Cannot delete Directory: %s because of: %s", path, Err_LastErrnoText());
        return false;
    }
    return HBLFileDBRemoveDirectory(path);
}

bool RemoveFile(FunctionLog log, const char *path) {
    if (Posix_Unlink(path) == 0) {
        log(LOG_INFO2, "File: %s deleted", path);
    } else if (errno == ENOENT) {
        log(LOG_ERR, "File %s does not exist", path);
    } else {
        log(LOG_ERR, "Cannot delete File: %s because of: %s", path, Err_LastErrnoText());
        return false;
    }
    return HBLFileDBRemoveFile(path);
}

}  // namespace

bool HBLFileExists(uint32_t vnet, uint32_t fileType, const char *customPath) {
    const HBLFileTypeRow *const row = FindUsableType(fileType);
    char path[HBL_PATH_SIZE];
    if (row == nullptr || !FormPath(__func__, vnet, fileType, customPath, path)) {
        return false;
    }
    struct stat status;
    if (Posix_Stat(path, &status) != 0) {
        HBLLog(LOG_ERR, __func__, "Cannot check for file or directory: %s , error: %s", path,
               Err_LastErrnoText());
        return false;
    }
    HBLLog(LOG_INFO2, __func__, "File/Directory/Device: %s exists", path);
    if (!HBLFileKindMatches(row->kind, status.st_mode)) {
        HBLLog(LOG_ERR, __func__,
               "File/Directory/device of type: %u and name: %s is found but is not of valid type", fileType,
               path);
        return false;
    }
    return true;
}

bool HBLCreateFile(uint32_t vnet, uint32_t fileType, const char *customPath) {
    const HBLFileTypeRow *const row = FindUsableType(fileType);
    if (row == nullptr) {
        return false;
    }
    if (fileType != HBL_FILE_CUSTOM && customPath != nullptr) {
        HBLLog(LOG_ERR, __func__, "Invalid arguments");
        return false;
    }
    char path[HBL_PATH_SIZE];
    if (!FormPath(__func__, vnet, fileType, customPath, path)) {
        return false;
    }
    if (!Make(__func__, row->kind, path, vnet) || !Record(__func__, row->kind, path)) {
        const int reason = errno;  // callers tell it
        Posix_Unlink(path);
        Posix_Rmdir(path);
        errno = reason;
        return false;
    }
    return true;
}

bool HBLRemoveFile(uint32_t vnet, uint32_t fileType, const char *customPath) {
    const HBLFileTypeRow *const row = FindUsableType(fileType);
    char path[HBL_PATH_SIZE];
    if (row == nullptr || !FormPath(__func__, vnet, fileType, customPath, path)) {
        return false;
    }
    return row->kind == HBLFileKind::Directory ? RemoveDirectory(__func__, path) : RemoveFile(__func__, path);
}
