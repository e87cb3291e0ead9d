// Simple case folding of UTF-16 units.
#pragma once

#include <cstdint>

// The unit that stands for both cases of a letter; surrogates and units without case fold to themselves.
uint16_t CaseFold_Unit(uint16_t unit);
