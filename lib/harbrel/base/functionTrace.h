// The trace lines of a function below the API frame.
#pragma once

#include "lib/harbrel/base/hblLog.h"

// Writes the entering line at once and the exiting line on every way out.
class FunctionTrace {
  public:
    explicit FunctionTrace(FunctionLog log, int line = __builtin_LINE()) : log_(log), line_(line) {
        log_(LOG_INFO2, " Entering Function, %s:%d", log_.Function(), line_);
    }
    ~FunctionTrace() { log_(LOG_INFO2, " Exiting Function, %s:%d", log_.Function(), line_); }
    FunctionTrace(const FunctionTrace &) = delete;
    FunctionTrace &operator=(const FunctionTrace &) = delete;

  private:
    FunctionLog log_;
    int line_;
};
