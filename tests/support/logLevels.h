// The lines that the library has logged in this process, whatever the mask: each is checked on its way.
#pragma once

#include <cstdint>

struct LinesLogged {
    unsigned all = 0;
    unsigned reasons = 0;  // errors and warnings
    uint32_t words = 0;    // the sum of the lines' hashes, without what differs from run to run
};

LinesLogged LogLevels_Count();
