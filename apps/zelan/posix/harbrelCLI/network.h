// One network: its name, and the question for its features.
#pragma once

#include <cstdint>

#include "lib/harbrel/harbrel.h"
#include "lib/misc/owners.h"

// "zelan<N>", built anew for each use.
MallocString NetworkName(uint32_t vnet);

// An empty feature structure that asks for one network.
HBL_VnetFeatures FeatureQuery(uint32_t vnet);
