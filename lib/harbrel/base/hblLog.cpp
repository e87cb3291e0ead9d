#include "lib/harbrel/base/hblLog.h"

#include <cstdarg>

#include "lib/file/posix.h"

namespace {

struct LogChannel {
    FILE *stream = nullptr;
    uint32_t mask = HBL_DEFAULT_LOG_MASK;
};

LogChannel channel;

}  // namespace

void HBLLog(uint32_t level, const char *functionName, const char *format, ...) {
    if (!HBLLogEnabled(level)) {
        return;
    }
    if (functionName != nullptr) {
        fprintf(channel.stream, "%s - ", functionName);
    }
    va_list args;
    va_start(args, format);
    vfprintf(channel.stream, format, args);
    va_end(args);
    fputc('\n', channel.stream);
}

bool HBLLogOpen(const char *path) {
    FILE *stream = Posix_Fopen(path, "ab+");
    if (stream == nullptr) {
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
