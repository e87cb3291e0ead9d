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
#include "lib/misc/owners.h"
#include "lib/string/lineReader.h"
#include "lib/string/tokens.h"

namespace {

bool OpenStream(HBLNetworkConfigurationDB *db, const char *function) {
    db->stream = Posix_Fopen(db->path, db->isBackup != 0 ? "re" : "r+e");
    if (db->stream == nullptr) {
        HBLLog(LOG_ERR, function, "Unable to open network configuration database file, error: %s",
               Err_ErrnoText(errno));
        return false;
    }
    if (db->isBackup == 0 && setvbuf(db->stream, nullptr, _IONBF, 0) != 0) {
        HBLLog(LOG_ERR, function, "Unable to set stream to unbuffered IO, error: %s", Err_ErrnoText(errno));
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
                                 const char *function) {
    const bool isBackup = db->isBackup != 0;
    char *text = nullptr;
    const ReadLineResult result = ReadNextLine(reader, &text, NETCFG_LINE_LIMIT, nullptr);
    if (result == READ_LINE_ERROR) {
        HBLLog(LOG_ERR, function, "Failed to read version number, error: %s", Err_ErrnoText(errno));
        return NetCfgReadResult::Failed;
    }
    if (result == READ_LINE_EOF) {
        if (isBackup) {
            return TakeLegacyVersion(db);
        }
        HBLLog(LOG_ERR, function, "Database file cannot be empty, aborting");
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
        HBLLog(LOG_ERR, function, "Database file must have version number, aborting");
        return NetCfgReadResult::NoDatabase;
    }
    HBLLog(LOG_INFO, function, "Version line not found in database file, defaulting to legacy version");
    if (fseek(reader, 0, SEEK_SET) != 0) {
        HBLLog(LOG_ERR, function, "fseek: failed, error: %s", Err_ErrnoText(errno));
        return NetCfgReadResult::Failed;
    }
    return TakeLegacyVersion(db);
}

bool ReadRecordLines(HBLNetworkConfigurationDB *db, FILE *reader, unsigned lineNumber, const char *function) {
    char *text = nullptr;
    ReadLineResult result = READ_LINE_EOF;
    while ((result = ReadNextLine(reader, &text, NETCFG_LINE_LIMIT, nullptr)) == READ_LINE_OK) {
        const MallocString line(text);
        NetCfgApplyRecordLine(db, ++lineNumber, line.get(), function);
    }
    if (result == READ_LINE_ERROR) {
        HBLLog(LOG_ERR, function, "Error while reading database file, error: %s", Err_ErrnoText(errno));
        return false;
    }
    return true;
}

// Notes the file as far as it was read: what another process has appended since then is still to come.
bool TrackReadFile(HBLNetworkConfigurationDB *db, const char *function) {
    const off_t readSize = lseek(fileno(db->stream), 0, SEEK_CUR);
    if (readSize < 0 || !NetCfgTrackFile(db)) {
        HBLLog(LOG_ERR, function, "Unable to look at database file: %s, error: %s", db->path,
               Err_ErrnoText(errno));
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

HBLNetworkConfigurationDB *NetCfgNewCache(const char *path, bool isBackup, const char *function) {
    MallocBlock<HBLNetworkConfigurationDB> db(
        static_cast<HBLNetworkConfigurationDB *>(calloc(1, sizeof(HBLNetworkConfigurationDB))));
    if (db == nullptr) {
        HBLLog(LOG_ERR, function, "Failed to allocate memory for HBLNetworkConfigurationDB, error: %s",
               Err_ErrnoText(errno));
        return nullptr;
    }
    db->isBackup = isBackup ? 1 : 0;
    db->path = strdup(path);
    if (db->path == nullptr) {
        HBLLog(LOG_ERR, function, "strdup failed, error: %s", Err_ErrnoText(errno));
        HBLLog(LOG_ERR, function, "Failed to load database cache with contents of file: %s", path);
        return nullptr;
    }
    return db.release();
}

NetCfgReadResult NetCfgReadFile(HBLNetworkConfigurationDB *db, const char *function) {
    if (!OpenStream(db, function)) {
        return NetCfgReadResult::Failed;
    }
    const FileStream reader = OpenReader(db->stream);
    if (reader == nullptr) {
        HBLLog(LOG_ERR, function, "Unable to open network configuration database file, error: %s",
               Err_ErrnoText(errno));
        return NetCfgReadResult::Failed;
    }
    unsigned lineNumber = 0;
    const NetCfgReadResult version = ReadVersionLine(db, reader.get(), &lineNumber, function);
    if (version != NetCfgReadResult::Done) {
        return version;
    }
    HBLLog(LOG_INFO2, function, "Database file, Major version: %u, Minor version: %u", db->majorVersion,
           db->minorVersion);
    if (!ReadRecordLines(db, reader.get(), lineNumber, function) ||
        (db->isBackup == 0 && !TrackReadFile(db, function))) {
        return NetCfgReadResult::Failed;
    }
    return NetCfgReadResult::Done;
}
