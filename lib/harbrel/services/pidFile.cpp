// PID files: the only record of what runs.
#include <fcntl.h>

#include "lib/err/errText.h"
#include "lib/file/posix.h"
#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/services.h"
#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/services/daemons.h"
#include "lib/harbrel/services/programs.h"
#include "lib/misc/owners.h"
#include "lib/string/lineReader.h"
#include "lib/string/str.h"
#include "lib/string/tokens.h"

namespace {

constexpr size_t PID_LINE_LIMIT = 256;

std::string ProgramName(FunctionLog log, const ServiceProgram &program) {
    const auto name = HBLNetCfgCopyAnswer(nullptr, program.answerKey);
    if (!name.has_value()) {
        log(LOG_INFO2, "Cannot find %s value in Vnet Config", program.answerKey);
    }
    return name.value_or(program.program);
}

char *FormatPidPath(PidFileForm form, const char *program, uint32_t vnet) {
    const std::string runDirText = HBLRunDir();
    const char *const runDir = runDirText.c_str();
    switch (form) {
        case PidFileForm::WithNumber:
            return Str_Asprintf(nullptr, "%s/%s-%d.pid", runDir, program, static_cast<int>(vnet));
        case PidFileForm::WithName:
            return Str_Asprintf(nullptr, "%s/%s-%s.pid", runDir, program, HBLVnetName(vnet).text);
        case PidFileForm::ForTheHost:
            return Str_Asprintf(nullptr, "%s/%s.pid", runDir, program);
    }
    return nullptr;
}

}  // namespace

bool HBLGetPidFilename(uint32_t vnet, uint32_t service, char **path, const char **displayName) {
    const ServiceProgram *program = HBLFindServiceProgram(service);
    if (program == nullptr) {
        HBLLog(LOG_ERR, __func__, "Invalid service name: %d", static_cast<int>(service));
        return false;
    }
    char *formatted = FormatPidPath(program->pidFile, ProgramName(__func__, *program).c_str(), vnet);
    if (formatted == nullptr) {
        HBLLog(LOG_ERR, __func__, "Memory allocation error, n: %u, p: %p", service, Address(formatted));
        return false;
    }
    *path = formatted;
    if (displayName != nullptr) {
        *displayName = HBLServiceName(service);
    }
    return true;
}

int32_t HBLExtractPidFromFile(const char *path, bool *openFailed) {
    // Without waiting, should a FIFO stand there.
    const FileStream stream =
        StreamOf(FileDescriptor(Posix_Open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC)), "r");
    if (!stream) {
        HBLLog(LOG_ERR, __func__, "Could not open the PID file: %s, error: %s", path, Err_LastErrnoText());
        *openFailed = true;
        return 0;
    }
    char *line = nullptr;
    if (ReadNextLine(stream.get(), &line, PID_LINE_LIMIT, nullptr) != READ_LINE_OK) {
        return 0;
    }
    const MallocString owner(line);
    uint32_t pid = 0;
    if (!StrToUint(&pid, line) || pid > INT32_MAX) {
        return 0;
    }
    return static_cast<int32_t>(pid);
}
