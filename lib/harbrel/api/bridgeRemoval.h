// Taking a network that is being removed out of bridging.
#pragma once

#include <cstdint>

// Takes a vnet out of bridging: its adapters go to the vnet that remains the default, or to none. The caller
// holds the database lock. Carries on through failures; true when all worked.
bool HBLRemoveBridgeMappingsForVnet(uint32_t vnet);
