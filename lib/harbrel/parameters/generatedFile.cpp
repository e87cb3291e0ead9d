#include "lib/harbrel/parameters/generatedFile.h"

#include <cstdio>

#include "lib/err/errText.h"

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

bool HBLFinishGeneratedFile(FunctionLog log, FileStream stream, bool written, const char *failure) {
    if (fclose(stream.release()) != 0 && written) {
        return HBLLogFileFailure(log, failure);
    }
    return written;
}
