// The trace lines of a function below the API frame.
#pragma once

#include "lib/harbrel/base/hblLog.h"

// Writes the entering line at once and the exiting line on every way out. `function` outlives the object.
class FunctionTrace {
  public:
    explicit FunctionTrace(const char *function, int line = __builtin_LINE())
        : function_(function), line_(line) {
        HBLLog(LOG_INFO2, function_, " Entering Function, %s:%d", function_, line_);
    }
    ~FunctionTrace() { HBLLog(LOG_INFO2, function_, " Exiting Function, %s:%d", function_, line_); }
    FunctionTrace(const FunctionTrace &) = delete;
    FunctionTrace &operator=(const FunctionTrace &) = delete;

  private:
    const char *function_;
    int line_;
};
