#include "lib/harbrel/database/reading.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "lib/err/errText.h"
#include "lib/file/posix.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/records.h"
#include "lib/harbrel/files/files.h"
#include "lib/misc/owners.h"
#include "lib/string/lineReader.h"
#include "lib/string/tokens.h"

namespace {

bool OpenStream(HBLNetworkConfigurationDB *db, FunctionLog log) {
    db->stream = db->isBackup != 0 ? HBLFopenToRead(db->path) : HBLFopenRegular(db->path, "r+");
    if (db->stream == nullptr) {
        log(LOG_ERR, "Unable to open network configuration database file, error: %s", Err_ErrnoText(errno));
        return false;
    }
    if (db->isBackup == 0 && setvbuf(db->stream, nullptr, _IONBF, 0) != 0) {
        log(LOG_ERR, "Unable to set stream to unbuffered IO, error: %s", Err_ErrnoText(errno));
        return false;
    }
    return true;
}

// A buffered reader beside the stream: byte by byte through the unbuffered one would cost a system call each.
// Both share the file position, so the stream stands wherever the reader has got to.
FileStream OpenReader(FILE *stream) {
    return StreamOf(FileDescriptor(fcntl(fileno(stream), F_DUPFD_CLOEXEC, 0)), "r");
}

NetCfgReadResult TakeLegacyVersion(HBLNetworkConfigurationDB *db) {
    db->majorVersion = 0;
    db->minorVersion = 0;
    return NetCfgReadResult::Done;
}

// Leaves the reader in front of the first record line, and *lineNumber at the number of lines before it.
NetCfgReadResult ReadVersionLine(HBLNetworkConfigurationDB *db, FILE *reader, unsigned *lineNumber,
                                 FunctionLog log) {
    const bool isBackup = db->isBackup != 0;
    char *text = nullptr;
    const ReadLineResult result = ReadNextLine(reader, &text, NETCFG_LINE_LIMIT, nullptr);
    if (result == READ_LINE_ERROR) {
        log(LOG_ERR, "Failed to read version number, error: %s", Err_ErrnoText(errno));
        return NetCfgReadResult::Failed;
    }
    if (result == READ_LINE_EOF) {
        if (isBackup) {
            return TakeLegacyVersion(db);
        }
        log(LOG_ERR, "Database file cannot be empty, aborting");
        return NetCfgReadResult::NoDatabase;
    }
    const MallocString line(text);
    const char *const version =
        NetCfgVersionText(line.get(), isBackup ? NETCFG_BACKUP_VERSION_KEY : NETCFG_VERSION_KEY);
    if (version != nullptr) {
        *lineNumber = 1;
        return ParseVersionString(version, &db->majorVersion, &db->minorVersion, NETCFG_MAJOR_VERSION)
                   ? NetCfgReadResult::Done
                   : NetCfgReadResult::Failed;
    }
    if (!isBackup) {
        log(LOG_ERR, "Database file must have version number, aborting");
        return NetCfgReadResult::NoDatabase;
    }
    log(LOG_INFO, "Version line not found in database file, defaulting to legacy version");
    if (fseek(reader, 0, SEEK_SET) != 0) {
        log(LOG_ERR, "fseek: failed, error: %s", Err_ErrnoText(errno));
        return NetCfgReadResult::Failed;
    }
    return TakeLegacyVersion(db);
}

bool ReadRecordLines(HBLNetworkConfigurationDB *db, FILE *reader, unsigned lineNumber, FunctionLog log) {
    char *text = nullptr;
    ReadLineResult result = READ_LINE_EOF;
    while ((result = ReadNextLine(reader, &text, NETCFG_LINE_LIMIT, nullptr)) == READ_LINE_OK) {
        const MallocString line(text);
        NetCfgApplyRecordLine(db, ++lineNumber, line.get(), log);
    }
    if (result == READ_LINE_ERROR) {
        log(LOG_ERR, "Error while reading database file, error: %s", Err_ErrnoText(errno));
        return false;
    }
    return true;
}

// Notes the file as far as it was read: what another process has appended since then is still to come.
bool TrackReadFile(HBLNetworkConfigurationDB *db, FunctionLog log) {
    const off_t readSize = lseek(fileno(db->stream), 0, SEEK_CUR);
    if (readSize < 0 || !NetCfgTrackFile(db)) {
        log(LOG_ERR, "Unable to look at database file: %s, error: %s", db->path, Err_ErrnoText(errno));
        return false;
    }
    db->fileIdentity.size = static_cast<uint64_t>(readSize);
    return true;
}

}  // namespace

const char *NetCfgVersionText(const char *line, const char *key) {
    unsigned index = 0;
    const MallocString found(GetNextToken(&index, line, "="));
    if (found == nullptr || strcmp(found.get(), key) != 0) {
        return nullptr;
    }
    return line[index] != '\0' ? line + index + 1 : line + index;
}

HBLNetworkConfigurationDB *NetCfgNewCache(const char *path, bool isBackup, FunctionLog log) {
    MallocBlock<HBLNetworkConfigurationDB> db(
        static_cast<HBLNetworkConfigurationDB *>(calloc(1, sizeof(HBLNetworkConfigurationDB))));
    if (db == nullptr) {
        log(LOG_ERR, "Failed to allocate memory for HBLNetworkConfigurationDB, error: %s",
            Err_ErrnoText(errno));
        return nullptr;
    }
    db->isBackup = isBackup ? 1 : 0;
    db->path = strdup(path);
    if (db->path == nullptr) {
        log(LOG_ERR, "strdup failed, error: %s", Err_ErrnoText(errno));
        log(LOG_ERR, "Failed to load database cache with contents of file: %s", path);
        return nullptr;
    }
    return db.release();
}

NetCfgReadResult NetCfgReadFile(HBLNetworkConfigurationDB *db, FunctionLog log) {
    if (!OpenStream(db, log)) {
        return NetCfgReadResult::Failed;
    }
    const FileStream reader = OpenReader(db->stream);
    if (reader == nullptr) {
        log(LOG_ERR, "Unable to open network configuration database file, error: %s", Err_ErrnoText(errno));
        return NetCfgReadResult::Failed;
    }
    unsigned lineNumber = 0;
    const NetCfgReadResult version = ReadVersionLine(db, reader.get(), &lineNumber, log);
    if (version != NetCfgReadResult::Done) {
        return version;
    }
    log(LOG_INFO2, "Database file, Major version: %u, Minor version: %u", db->majorVersion, db->minorVersion);
    if (!ReadRecordLines(db, reader.get(), lineNumber, log) ||
        (db->isBackup == 0 && !TrackReadFile(db, log))) {
        return NetCfgReadResult::Failed;
    }
    return NetCfgReadResult::Done;
}
