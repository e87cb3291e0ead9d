// Whether the library is loaded, and the short log of calls that work without a load.
#pragma once

#include <cstdint>

uint16_t HBLLoadCount();  // 0: not loaded
void HBLSetLoadCount(uint16_t count);
inline bool HBLIsLoaded() {
    return HBLLoadCount() != 0;
}

// With the library not loaded: opens the default log with the default mask for the object's life. Otherwise
// it does nothing. A log that cannot be opened is done without.
class ShortLog {
  public:
    ShortLog();
    ~ShortLog();
    ShortLog(const ShortLog &) = delete;
    ShortLog &operator=(const ShortLog &) = delete;
};
