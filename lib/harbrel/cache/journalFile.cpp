#include "lib/harbrel/cache/journalFile.h"

#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "lib/file/posix.h"

namespace {

bool IsTrackedFile(const NetCfgFileIdentity &identity, const struct stat &status) {
    return identity.device == status.st_dev && identity.inode == status.st_ino;
}

// Takes back what a failed write left of `text`, which would otherwise read as a record or swallow the next
// line. Nothing but the beginning of our own line is ever cut off: a whole line, ours or another process's,
// ends in a line feed, which a part of one line does not hold. errno is left as it was.
void CutTornLine(HBLNetworkConfigurationDB *db, std::string_view text) {
    int reason = errno;
    NetCfgFileIdentity &identity = db->fileIdentity;
    int fd = fileno(db->stream);
    struct stat status = {};
    if (fstat(fd, &status) == 0 && IsTrackedFile(identity, status)) {
        uint64_t size = static_cast<uint64_t>(status.st_size);
        size_t torn = size > identity.size ? size - identity.size : 0;
        std::string tail(torn < text.size() ? torn : 0, '\0');
        if (!tail.empty() &&
            pread(fd, tail.data(), torn, static_cast<off_t>(identity.size)) == static_cast<ssize_t>(torn) &&
            text.starts_with(tail) && ftruncate(fd, static_cast<off_t>(identity.size)) != 0) {
            identity.size = size;
            identity.endsInsideLine = 1;
        }
    }
    errno = reason;
}

}  // namespace

bool NetCfgTrackFile(HBLNetworkConfigurationDB *db) {
    int fd = fileno(db->stream);
    struct stat status = {};
    // The flag that is lost by this, O_NONBLOCK, does nothing for a regular file.
    if (fcntl(fd, F_SETFL, O_APPEND) != 0 || fstat(fd, &status) != 0) {
        return false;
    }
    char last = '\n';
    if (status.st_size > 0 && pread(fd, &last, 1, status.st_size - 1) != 1) {
        return false;
    }
    db->fileIdentity = {status.st_dev, status.st_ino, static_cast<uint64_t>(status.st_size),
                        static_cast<uint8_t>(last != '\n' && last != '\r')};
    return true;
}

bool NetCfgFileIsAsLastSeen(const HBLNetworkConfigurationDB *db) {
    struct stat status = {};
    return Posix_Stat(db->path, &status) == 0 && IsTrackedFile(db->fileIdentity, status) &&
           db->fileIdentity.size == static_cast<uint64_t>(status.st_size);
}

bool NetCfgFileWasReplaced(const HBLNetworkConfigurationDB *db) {
    struct stat status = {};
    return Posix_Stat(db->path, &status) == 0 && !IsTrackedFile(db->fileIdentity, status);
}

bool NetCfgSameFile(const HBLNetworkConfigurationDB *db, const HBLNetworkConfigurationDB *other) {
    return db->fileIdentity.device == other->fileIdentity.device &&
           db->fileIdentity.inode == other->fileIdentity.inode;
}

bool NetCfgAppendLine(HBLNetworkConfigurationDB *db, std::string_view line) {
    if (db->stream == nullptr) {
        errno = EBADF;
        return false;
    }
    std::string mended;
    if (db->fileIdentity.endsInsideLine != 0) {
        mended.append("\n").append(line);
        line = mended;
    }
    // The stream after an import is buffered; the flush costs the unbuffered one nothing.
    if (fwrite(line.data(), line.size(), 1, db->stream) == 0 || fflush(db->stream) != 0) {
        __fpurge(db->stream);
        CutTornLine(db, line);
        return false;
    }
    db->fileIdentity.size += line.size();
    db->fileIdentity.endsInsideLine = 0;
    db->hasChanged = 1;
    return true;
}
