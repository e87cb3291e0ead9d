// What Log and Warning say during the object's life. One at a time.
#pragma once

#include <cstdarg>
#include <cstdlib>
#include <string>
#include <utility>

#include "lib/log/log.h"
#include "lib/string/str.h"

class GeneralLog {
  public:
    GeneralLog() { SetHooks(Record); }
    ~GeneralLog() {
        SetHooks(nullptr);
        text_.clear();
    }
    GeneralLog(GeneralLog &&) = delete;

    // What has come since the last call.
    std::string Take() { return std::exchange(text_, std::string()); }

  private:
    static void SetHooks(LogHook hook) {
        Log_SetLogHook(hook);
        Log_SetWarningHook(hook);
    }
    static void Record(const char *format, va_list args) {
        char *line = Str_Vasprintf(nullptr, format, args);
        text_ += line;
        free(line);
    }

    static inline std::string text_;
};
