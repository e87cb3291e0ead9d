// Whether the library is loaded, and the short log of calls that work without a load.
#pragma once

#include <cstdint>

// Loads nest; the library is loaded while one at least is not taken back.
bool HBLIsLoaded();
// One load more. False, with nothing changed, at the 65535 that can be counted.
bool HBLAddLoad();
// One load less. True when it was the last; the library is loaded when this is called.
bool HBLDropLoad();

// With the library not loaded: opens the default log with the default mask for the object's life. Otherwise
// it does nothing. A log that cannot be opened is done without.
class ShortLog {
  public:
    ShortLog();
    ~ShortLog();
    ShortLog(const ShortLog &) = delete;
    ShortLog &operator=(const ShortLog &) = delete;
};
