#include "lib/log/log.h"

#include <atomic>

namespace {

std::atomic<LogHook> logHook = nullptr;
std::atomic<LogHook> warningHook = nullptr;

void Hand(LogHook hook, const char *format, va_list args) {
    if (hook != nullptr) {
        hook(format, args);
    }
}

}  // namespace

void Log(const char *format, ...) {
    va_list args;
    va_start(args, format);
    Hand(logHook.load(std::memory_order_acquire), format, args);
    va_end(args);
}

void Warning(const char *format, ...) {
    va_list args;
    va_start(args, format);
    Hand(warningHook.load(std::memory_order_acquire), format, args);
    va_end(args);
}

void Log_SetLogHook(LogHook hook) {
    logHook.store(hook, std::memory_order_release);
}

void Log_SetWarningHook(LogHook hook) {
    warningHook.store(hook, std::memory_order_release);
}
