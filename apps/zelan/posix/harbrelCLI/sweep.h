// One walk over all networks that does one thing to each and never stops at a failure.
#pragma once

#include "lib/harbrel/harbrel.h"

enum SweepMode : unsigned {
    SWEEP_PROPAGATE = 1,  // regenerate the configuration files of each network
    SWEEP_START = 2,
    SWEEP_STOP = 4,
    SWEEP_STATUS = 8,
};

// All of these need the library to be loaded and return 0 if all went well and 1 if anything failed.
int SweepAllNetworks(SweepMode mode);
// Stops what runs on one network, going by the structure's runtime flags.
int StopNetworkServices(const char *name, const HBL_VnetFeatures *features);
// Regenerates the DHCP and NAT files of one network.
int UpdateNetworkConfigFiles(const char *name, const HBL_VnetFeatures *features);
