// Names of networks, built anew for each use.
#pragma once

#include <cstdint>

#include "lib/harbrel/harbrel.h"
#include "lib/misc/owners.h"

// "zelan<N>".
MallocString NetworkName(uint32_t vnet);

// An empty feature structure that asks for one network.
HBL_VnetFeatures FeatureQuery(uint32_t vnet);
