// What every exported function wears: entering line, loaded test, argument line, argument test, exiting line.
#pragma once

#include <cstdint>

#include "lib/harbrel/base/hblLog.h"

// The constructor writes the entering line and makes the loaded test; the destructor writes the exiting line
// of a call that passed it. A function reads:
//
//     const ApiFrame frame(__func__);
//     if (!frame.Passed()) return false;
//     frame.log(LOG_ARGS, "Arguments - v: %p,%s", ...);
class ApiFrame {
  public:
    enum class Kind {
        WhileLoaded,
        WhileLoadedWithoutExit,  // the same, with no exiting line
        WhileNotLoaded,          // the loaded test turned around
        Always,                  // no test
    };

    explicit ApiFrame(const char *function, Kind kind = Kind::WhileLoaded, int line = __builtin_LINE());
    ~ApiFrame();
    ApiFrame(const ApiFrame &) = delete;
    ApiFrame &operator=(const ApiFrame &) = delete;

    bool Passed() const { return passed_; }  // the loaded test, whose refusal is logged

    const FunctionLog log;

  private:
    int line_;
    bool passed_;
    bool exitingLine_;
};

// The number of a network named by a caller. A null name logs "Invalid argument - <called>: %p"; a name that
// yields no number below 256 logs "Invalid vnet name: %s". Both false.
bool ApiVnetArgument(FunctionLog log, const char *vnet, uint32_t *number, const char *called = "vnet");
// The same for a function that has no other argument: behind its argument line.
bool ApiOnlyVnetArgument(FunctionLog log, const char *vnet, uint32_t *number, const char *called = "vnet");
// The test of the name alone, for functions whose null test has other words.
bool ApiVnetNumber(FunctionLog log, const char *vnet, uint32_t *number);
