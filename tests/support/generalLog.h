// What Log and Warning say during the object's life, the latter behind "warning: ". One at a time.
#pragma once

#include <cstdarg>
#include <cstdlib>
#include <string>
#include <utility>

#include "lib/log/log.h"
#include "lib/string/str.h"

class GeneralLog {
  public:
    GeneralLog() {
        Log_SetLogHook(Record);
        Log_SetWarningHook(RecordWarning);
    }
    ~GeneralLog() {
        Log_SetLogHook(nullptr);
        Log_SetWarningHook(nullptr);
        text_.clear();
    }
    GeneralLog(GeneralLog &&) = delete;

    // What has come since the last call.
    std::string Take() { return std::exchange(text_, std::string()); }

  private:
    static void Record(const char *format, va_list args) {
        char *line = Str_Vasprintf(nullptr, format, args);
        text_ += line;
        free(line);
    }
    static void RecordWarning(const char *format, va_list args) {
        text_ += "warning: ";
        Record(format, args);
    }

    static inline std::string text_;
};
