// What every exported function wears: entering line, loaded test, argument line, argument test, exiting line.
#pragma once

#include <cstdint>
#include <cstring>

// The constructor writes the entering line and makes the loaded test; the destructor writes the exiting line,
// unless the library was not loaded. A function reads:
//
//     const ApiFrame frame(__func__);
//     if (!frame.Loaded()) return false;
//     HBLLog(LOG_ARGS, __func__, "Arguments - v: %p,%s", ...);
class ApiFrame {
  public:
    enum class Ending { WithExitingLine, WithoutExitingLine };

    explicit ApiFrame(const char *function, Ending ending = Ending::WithExitingLine,
                      int line = __builtin_LINE());
    ~ApiFrame();
    ApiFrame(const ApiFrame &) = delete;
    ApiFrame &operator=(const ApiFrame &) = delete;

    bool Loaded() const { return loaded_; }

  private:
    const char *function_;
    int line_;
    bool loaded_;
    bool exitingLine_;
};

// The two trace lines on their own, for the few functions whose frame differs.
void ApiLogEntering(const char *function, int line = __builtin_LINE());
void ApiLogExiting(const char *function, int line = __builtin_LINE());

// The number of a network named by a caller. A null name logs "Invalid argument - <called>: %p"; a name that
// yields no number below 256 logs "Invalid vnet name: %s". Both under `function`, both false.
bool ApiVnetArgument(const char *function, const char *vnet, uint32_t *number, const char *called = "vnet");
// The same for a function that has no other argument: behind its argument line.
bool ApiOnlyVnetArgument(const char *function, const char *vnet, uint32_t *number,
                         const char *called = "vnet");
// The test of the name alone, for functions whose null test has other words.
bool ApiVnetNumber(const char *function, const char *vnet, uint32_t *number);

// In/out lengths: what a caller's length, or other in/out number, holds, 0 when none was given; and what it
// gets on success.
inline uint32_t ValueOrZero(const uint32_t *number) {
    return number != nullptr ? *number : 0;
}
inline uint32_t LengthWithTerminator(const char *text) {
    return static_cast<uint32_t>(strlen(text) + 1);
}
