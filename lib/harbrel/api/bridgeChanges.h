// Changes of what bridging reads, with the restarts of the bridge daemons that make them take effect.
#pragma once

#include <cstdint>

// Takes a vnet out of bridging: its adapters go to the vnet that remains the default, or to none. The caller
// holds the database lock. Carries on through failures; true when all worked.
bool HBLRemoveBridgeMappingsForVnet(uint32_t vnet);
