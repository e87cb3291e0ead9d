// The places of the database that many processes change at once.
#pragma once

#include <cstdint>
#include <string>

inline constexpr uint32_t PLACES = 10;
// The first ones are changed without the lock.
inline constexpr uint32_t PLACES_WITHOUT_LOCK = 3;
// The place that the editor changes too.
inline constexpr uint32_t EDITORS_PLACE = 0;
inline constexpr const char *EDITORS_NETWORK = "zelan20";

// Through the exported calls; the library is loaded. The value has 24 bits; NO_VALUE removes what takes no
// lock.
bool WritePlace(uint32_t place, uint32_t value);
// NO_VALUE for a place that has none, or none that was ever written.
uint32_t ReadPlace(uint32_t place);

// As the editor takes it for its place.
std::string EditorsText(uint32_t value);
// The records of a whole database in which the places have the values from `first` on.
std::string RecordsFrom(uint32_t first);
