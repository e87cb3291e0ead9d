#include "lib/harbrel/base/hblLog.h"

#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>

#include "lib/file/posix.h"

namespace {

struct LogChannel {
    FILE *stream = nullptr;
    std::atomic<uint32_t> mask = HBL_DEFAULT_LOG_MASK;
};

LogChannel channel;

__attribute__((format(printf, 3, 0))) void WriteLine(uint32_t level, const char *functionName,
                                                     const char *format, va_list args) {
    if (!HBLLogEnabled(level)) {
        return;
    }
    if (functionName != nullptr) {
        fprintf(channel.stream, "%s - ", functionName);
    }
    vfprintf(channel.stream, format, args);
    fputc('\n', channel.stream);
}

}  // namespace

void HBLLog(uint32_t level, const char *functionName, const char *format, ...) {
    va_list args;
    va_start(args, format);
    WriteLine(level, functionName, format, args);
    va_end(args);
}

void FunctionLog::operator()(uint32_t level, const char *format, ...) const {
    va_list args;
    va_start(args, format);
    WriteLine(level, function_, format, args);
    va_end(args);
}

bool HBLLogOpen(const char *path) {
    FILE *stream = Posix_Fopen(path, "ab+");
    if (stream == nullptr) {
        return false;
    }
    struct stat status = {};
    if (fstat(fileno(stream), &status) == 0 && S_ISFIFO(status.st_mode)) {
        fclose(stream);  // lines would be waited for until somebody reads
        errno = EINVAL;
        return false;
    }
    HBLLogClose();
    channel.stream = stream;
    return true;
}

void HBLLogClose() {
    if (channel.stream != nullptr) {
        fclose(channel.stream);
        channel.stream = nullptr;
    }
}

FILE *HBLLogStream() {
    return channel.stream;
}

void HBLLogSetMask(uint32_t mask) {
    channel.mask = mask;
}

uint32_t HBLLogMask() {
    return channel.mask;
}

bool HBLLogEnabled(uint32_t level) {
    return (level & channel.mask) != 0 && channel.stream != nullptr;
}
