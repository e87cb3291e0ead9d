// Random numbers.
#pragma once

#include <cstddef>

// Fills the buffer from /dev/urandom, opened and closed for the one call. False, buffer untouched or partly
// filled, when that fails.
bool Random_Crypto(size_t size, void *buffer);
