#include "lib/log/log.h"

#include <unistd.h>

#include <atomic>
#include <cstdio>

namespace {

constexpr size_t LOG_LINE_SIZE = 4096;

struct LogState {
    int fd = -1;
    bool quiet = true;
    bool enabled = false;
    std::atomic<LogHook> logHook = nullptr;
    std::atomic<LogHook> warningHook = nullptr;
};

LogState logState;

void WriteAll(int fd, const char *text, size_t length) {
    while (length > 0) {
        const ssize_t written = write(fd, text, length);
        if (written <= 0) {
            return;
        }
        text += written;
        length -= static_cast<size_t>(written);
    }
}

void WriteToLogFile(const char *line, size_t length) {
    if (logState.enabled) {
        WriteAll(logState.fd, line, length);
    }
}

size_t FormatLine(char (&line)[LOG_LINE_SIZE], const char *format, va_list args) {
    const int length = vsnprintf(line, sizeof line, format, args);
    if (length < 0) {
        return 0;
    }
    const size_t wanted = static_cast<size_t>(length);
    return wanted < sizeof line ? wanted : sizeof line - 1;
}

void LogLine(const char *format, va_list args) {
    if (!logState.enabled) {
        return;
    }
    char line[LOG_LINE_SIZE];
    const size_t length = FormatLine(line, format, args);
    WriteToLogFile(line, length);
}

void WarningLine(const char *format, va_list args) {
    char line[LOG_LINE_SIZE];
    const size_t length = FormatLine(line, format, args);
    WriteToLogFile(line, length);
    if (!logState.quiet) {
        WriteAll(STDERR_FILENO, line, length);
    }
}

}  // namespace

void Log(const char *format, ...) {
    const LogHook hook = logState.logHook.load(std::memory_order_acquire);
    va_list args;
    va_start(args, format);
    (hook != nullptr ? hook : LogLine)(format, args);
    va_end(args);
}

void Warning(const char *format, ...) {
    const LogHook hook = logState.warningHook.load(std::memory_order_acquire);
    va_list args;
    va_start(args, format);
    (hook != nullptr ? hook : WarningLine)(format, args);
    va_end(args);
}

void Log_SetLogHook(LogHook hook) {
    logState.logHook.store(hook, std::memory_order_release);
}

void Log_SetWarningHook(LogHook hook) {
    logState.warningHook.store(hook, std::memory_order_release);
}
