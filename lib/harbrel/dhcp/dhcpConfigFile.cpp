#include "lib/harbrel/dhcp/dhcpConfigFile.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "lib/err/errText.h"
#include "lib/file/posix.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/dhcp/dhcpConfigBlock.h"
#include "lib/harbrel/dhcp/dhcpConfigText.h"
#include "lib/harbrel/files/files.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/harbrel/parameters/generatedFile.h"
#include "lib/misc/owners.h"

namespace {

constexpr size_t COPY_PIECE = 256;
constexpr size_t COMPARED_HASH_DIGITS = 8;

// What of the existing file goes into the new one.
struct KeptText {
    long headEnd = 0;    // the head is the bytes before it; 0: none
    long tailStart = 0;  // the tail is the bytes from it on; 0: none
};

bool CreateNewFile(FunctionLog log, uint32_t vnet, const char *confPath) {
    log(LOG_INFO, "DHCP Config %s does not exist yet, Creating new", confPath);
    const struct {
        uint32_t fileType;
        const char *failure;
    } steps[] = {
        {HBL_FILE_VNET_DIR, "Cannot create zelan Directory"},
        {HBL_FILE_DHCP_DIR, "Cannot create DHCP Directory"},
        {HBL_FILE_DHCP_CONF, "Cannot create DHCP config file"},
    };
    for (const auto &step : steps) {
        if (!HBLCreateFile(vnet, step.fileType, nullptr)) {
            log(LOG_ERR, "%s", step.failure);
            return false;
        }
    }
    return true;
}

// Whether the block is as the library left it.
bool BlockIsIntact(FunctionLog log, uint32_t vnet, FILE *stream, long start, long end) {
    const MallocString hash(HBLCalculateHashStrForBlock(stream, start, end));
    if (hash == nullptr) {
        log(LOG_ERR,
            "Hash for DHCP config could not be calculated, creating a new config file and backing up "
            "existing file");
        return false;
    }
    const auto stored = HBLGetVnetCfg(vnet, VNET_FIELD_DHCP_CFG_HASH);
    if (!stored.has_value()) {
        log(LOG_ERR,
            "DHCP config hash not found in vnet config, creating a new config file and backing up "
            "existing file");
        return false;
    }
    if (strncasecmp(stored->c_str(), hash.get(), COMPARED_HASH_DIGITS) != 0) {
        log(LOG_WRN, "DHCP config modified by user, creating a new config file and backing up existing file");
        return false;
    }
    log(LOG_INFO, "DHCP config block is not modified");
    return true;
}

long StreamLength(FILE *stream) {
    struct stat status;
    return fstat(fileno(stream), &status) == 0 ? static_cast<long>(status.st_size) : 0;
}

KeptText DecideWhatToKeep(FunctionLog log, uint32_t vnet, FILE *stream) {
    KeptText kept;
    long start;
    long end;
    log(LOG_ERR, "Trying to locate the zelan dhcp config block");
    HBLLocateZelanDHCPBlock(stream, &start, &end);
    if (start < 0 || end < 0) {
        log(LOG_ERR,
            "Could not locate zelan DHCP config block, creating a new config file and backing up existing "
            "file");
        return kept;
    }
    log(LOG_INFO2, "Located positions: Start: %li, End: %li, Size: %li", start, end, end - start);
    if (BlockIsIntact(log, vnet, stream, start, end)) {
        kept.headEnd = start;
        kept.tailStart = StreamLength(stream) > end ? end : 0;
    }
    return kept;
}

bool BackUp(FunctionLog log, uint32_t vnet, const char *confPath, char (&backupPath)[HBL_PATH_SIZE]) {
    if (!HBLGeneratedFilePath(log, vnet, HBL_FILE_DHCP_CONF_BACKUP,
                              "Cannot get the DHCP config backup file name", backupPath)) {
        return false;
    }
    log(LOG_WRN, "Backing up DHCP config into \"%s\" before modification", backupPath);
    if (!HBLCopyFile(confPath, backupPath)) {
        log(LOG_ERR, "Failed to backup DHCP file. Aborting");
        return false;
    }
    return true;
}

bool WriteHead(FunctionLog log, uint32_t vnet, const KeptText &kept, const char *backupPath, FILE *stream) {
    if (kept.headEnd == 0) {
        if (fprintf(stream, DHCP_FILE_HEADER, vnet) < 0) {
            return HBLLogFileFailure(log, "fprintf: failed while writing DHCP File Header");
        }
        return true;
    }
    log(LOG_INFO2, "Copying from backup file, pos:%d-%li", 0, kept.headEnd);
    if (!HBLCopyFileData(0, kept.headEnd, backupPath, stream)) {
        log(LOG_ERR, "Copying data failed");
        return false;
    }
    log(LOG_INFO2, "Copying is done");
    return true;
}

bool StoreHash(FunctionLog log, uint32_t vnet, FILE *stream, long start) {
    const MallocString hash(HBLCalculateHashStrForBlock(stream, start, ftell(stream)));
    if (hash == nullptr) {
        log(LOG_ERR, "Hash for DHCP config block could not be calculated");
        return false;
    }
    if (!HBLSetVnetCfg(vnet, VNET_FIELD_DHCP_CFG_HASH, hash.get())) {
        log(LOG_ERR, "Could not set DHCP config hash in vnet config");
        return false;
    }
    log(LOG_INFO, "Hash of DHCP config block set in vnet config");
    return true;
}

bool WriteTail(FunctionLog log, const KeptText &kept, const char *backupPath, FILE *stream) {
    if (kept.tailStart == 0) {
        return true;
    }
    log(LOG_INFO2, "Copying from backup file, pos:%li-%d", kept.tailStart, 0);
    if (!HBLCopyFileData(kept.tailStart, 0, backupPath, stream)) {
        log(LOG_ERR, "Failure in writing DHCP configuration  information into the config file");
        return false;
    }
    log(LOG_INFO2, "Copying is done");
    return true;
}

bool CreateLeases(FunctionLog log, uint32_t vnet) {
    if (!HBLCreateFile(vnet, HBL_FILE_DHCP_LEASES, nullptr)) {
        log(LOG_ERR, "Cannot create DHCP leases file");
        return false;
    }
    return true;
}

// *blockEnd is set once the block is whole and its hash is stored.
bool WriteText(FunctionLog log, uint32_t vnet, const KeptText &kept, const char *backupPath, FILE *stream,
               long *blockEnd) {
    long start = 0;
    if (!WriteHead(log, vnet, kept, backupPath, stream) || !HBLDHCPWriteBlock(log, stream, vnet, &start) ||
        !StoreHash(log, vnet, stream, start)) {
        return false;
    }
    *blockEnd = ftell(stream);
    return WriteTail(log, kept, backupPath, stream);
}

// The text behind the block is not all there. A blank at the end of its end marker keeps the next call from
// taking the rest for what the user wrote.
void SpoilEndMarker(const char *confPath, long blockEnd) {
    constexpr long LINE_END_AND_LAST_CHARACTER = 2;
    const FileDescriptor file(HBLOpenRegular(confPath, O_WRONLY, 0));
    if (file) {
        // Nothing is left to be done where even that byte cannot be written.
        const ssize_t written = pwrite(file.get(), " ", 1, blockEnd - LINE_END_AND_LAST_CHARACTER);
        static_cast<void>(written);
    }
}

bool WriteFile(FunctionLog log, uint32_t vnet, const KeptText &kept, const char *confPath, bool isNew,
               const char *backupPath) {
    FileStream stream(HBLFopenRegular(confPath, "w+"));
    if (stream == nullptr) {
        log(LOG_ERR, "Cannot create DHCP Config File, %s, because of  error: %s", confPath,
            Err_LastErrnoText());
        return false;
    }
    log(LOG_INFO, "Writing configuration information into: %s", confPath);
    long blockEnd = 0;
    const bool written = WriteText(log, vnet, kept, backupPath, stream.get(), &blockEnd);
    const bool hasLeases = written && CreateLeases(log, vnet);
    const bool onDisk = HBLFinishGeneratedFile(log, std::move(stream), confPath, isNew, written,
                                               "fclose: failed while writing DHCP config file");
    if (blockEnd != 0 && !onDisk) {
        SpoilEndMarker(confPath, blockEnd);
    }
    return onDisk && hasLeases;
}

// Fewer bytes than asked for are no failure; a piece that comes in part is not written.
bool CopyBytes(FunctionLog log, size_t left, FILE *source, FILE *destination) {
    char piece[COPY_PIECE];
    while (left > 0) {
        const size_t size = left < sizeof piece ? left : sizeof piece;
        log(LOG_INFO2, "To read: %zu", size);
        if (fread(piece, size, 1, source) != 1) {
            if (ferror(source) != 0) {
                log(LOG_ERR, "fread: failure while copying file, error: %s", Err_LastErrnoText());
                return false;
            }
            log(LOG_ERR, "Finished copying");
            return true;
        }
        const size_t written = fwrite(piece, size, 1, destination);
        log(LOG_INFO2, "Written: %zu", written * size);
        if (written != 1) {
            log(LOG_ERR, "fwrite: failure while copying file, error: %s", Err_LastErrnoText());
            return false;
        }
        left -= size;
    }
    log(LOG_INFO2, "Finished copying data");
    return true;
}

}  // namespace

bool HBLDHCPWriteDHCPCfg(uint32_t vnet) {
    const FunctionLog log(__func__);
    char confPath[HBL_PATH_SIZE];
    char backupPath[HBL_PATH_SIZE] = "";
    if (!HBLGeneratedFilePath(log, vnet, HBL_FILE_DHCP_CONF, "Cannot get the DHCP config file name",
                              confPath)) {
        return false;
    }
    KeptText kept;
    FileStream existing(HBLFopenRegular(confPath, "r"));
    const bool isNew = existing == nullptr;
    if (isNew) {
        if (!CreateNewFile(log, vnet, confPath)) {
            return false;
        }
    } else {
        kept = DecideWhatToKeep(log, vnet, existing.get());
        existing.reset();
        if (!BackUp(log, vnet, confPath, backupPath)) {
            return false;
        }
    }
    const bool written = WriteFile(log, vnet, kept, confPath, isNew, backupPath);
    if (!written && isNew) {
        HBLRemoveFile(vnet, HBL_FILE_DHCP_CONF, nullptr);
    }
    return written;
}

bool HBLCopyFileData(long startPos, long endPos, const char *sourcePath, FILE *destStream) {
    const FileStream source(Posix_Fopen(sourcePath, "r"));
    if (source == nullptr) {
        HBLLog(LOG_ERR, __func__, "Cannot open file: %s for reading, error: %s", sourcePath,
               Err_LastErrnoText());
        return false;
    }
    if (endPos == 0) {
        endPos = StreamLength(source.get());
    }
    if (endPos < startPos) {
        HBLLog(LOG_ERR, __func__, "endPos: %li cannot be less than startPos: %li", endPos, startPos);
        return false;
    }
    size_t left = static_cast<size_t>(endPos - startPos);
    HBLLog(LOG_INFO2, __func__, "Positions for data copying, maxRead: %zu, startPos: %li, endPos: %li ", left,
           startPos, endPos);
    if (fseek(source.get(), startPos, SEEK_SET) != 0) {
        HBLLog(LOG_ERR, __func__, "fseek: failed, error: %s", Err_LastErrnoText());
        return false;
    }
    return CopyBytes(__func__, left, source.get(), destStream);
}
