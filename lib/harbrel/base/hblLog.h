// The library's log: lines of the form "<function> - <message>" by a level mask, without time stamp and
// without flush.
#pragma once

#include <cstdint>
#include <cstdio>

#include "lib/harbrel/harbrel.h"

constexpr const char *HBL_DEFAULT_LOG_FILE = "/var/log/harbrel";
constexpr uint32_t HBL_DEFAULT_LOG_MASK = LOG_ERR | LOG_WRN | LOG_OK;  // 25
constexpr uint32_t HBL_MAX_LOG_MASK = 127;

// Writes nothing if `level` has no bit in the mask or no stream is open. `functionName` null: no prefix.
void HBLLog(uint32_t level, const char *functionName, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

// The log as one function writes it: the name in front of its lines, bound once and handed on to its helpers.
// `function` outlives the object.
class FunctionLog {
  public:
    constexpr FunctionLog(const char *function) : function_(function) {}
    void operator()(uint32_t level, const char *format, ...) const __attribute__((format(printf, 3, 4)));
    const char *Function() const { return function_; }

  private:
    const char *function_;
};

// The state behind it, one for the process and not locked.
bool HBLLogOpen(const char *path);  // "ab+"; replaces (and closes) the open stream only on success
void HBLLogClose();                 // closes the stream and marks it absent
FILE *HBLLogStream();               // null while absent
void HBLLogSetMask(uint32_t mask);
uint32_t HBLLogMask();
bool HBLLogEnabled(uint32_t level);  // whether a line of this level would be written

// What "%p" takes.
inline const void *Address(const void *pointer) {
    return pointer;
}

// "%s" never gets a null: the text, or the word "null".
inline const char *TextOrNull(const char *text) {
    return text != nullptr ? text : "null";
}

// The precision of the "%.*s" that shows TextOrNull of `length` bytes without a terminator.
inline int ShownLength(const char *text, uint32_t length) {
    if (text == nullptr) {
        return sizeof "null" - 1;
    }
    return length < INT32_MAX ? static_cast<int>(length) : INT32_MAX;
}
