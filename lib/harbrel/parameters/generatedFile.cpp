#include "lib/harbrel/parameters/generatedFile.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "lib/err/errText.h"
#include "lib/harbrel/files/sync.h"

bool HBLGeneratedFilePath(FunctionLog log, uint32_t vnet, uint32_t fileType, const char *failure,
                          char (&path)[HBL_PATH_SIZE]) {
    if (!HBLGetFileName(vnet, fileType, path, sizeof path)) {
        log(LOG_ERR, "%s", failure);
        return false;
    }
    return true;
}

bool HBLLogFileFailure(FunctionLog log, const char *what) {
    log(LOG_ERR, "%s, error: %s", what, Err_LastErrnoText());
    return false;
}

bool HBLFinishGeneratedFile(FunctionLog log, FileStream stream, const char *path, bool isNew, bool written,
                            const char *failure) {
    const bool onDisk = !written || (fflush(stream.get()) == 0 && fsync(fileno(stream.get())) == 0);
    const int reason = errno;
    const bool closed = fclose(stream.release()) == 0;
    if (written && !(onDisk && closed)) {
        errno = onDisk ? errno : reason;
        return HBLLogFileFailure(log, failure);
    }
    if (isNew) {
        HBLSyncFolderOf(path);
    }
    return written;
}
