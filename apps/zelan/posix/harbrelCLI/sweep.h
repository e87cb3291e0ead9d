// One walk over all networks that does one thing to each and never stops at a failure.
#pragma once

enum SweepMode : unsigned {
    SWEEP_PROPAGATE = 1,  // regenerate the configuration files of each network
    SWEEP_START = 2,
    SWEEP_STOP = 4,
    SWEEP_STATUS = 8,
};

// Needs the library to be loaded. True if all went well.
bool SweepAllNetworks(SweepMode mode);
