// What happened to one place of the database, and whether any order of it explains what was found there.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The value that a place has before anything is written to it.
inline constexpr uint32_t FIRST_VALUE = 0;
// What was found is no value that anybody writes.
inline constexpr uint32_t NO_VALUE = ~0u;

// One that was acknowledged; those that failed are left out, since they must not be found.
struct Operation {
    uint32_t place;
    bool isWrite;
    uint32_t value;  // of a write: one that nobody else writes
    int64_t begin;   // nanoseconds of a clock that all processes share
    int64_t end;
};

// Whether each operation can have taken effect at one moment between its begin and its end, so that every
// read finds what the last write before it has left. Empty when it can, else what cannot be. All operations
// are of one place.
// Beside writes that take no lock a read may find nothing, and what such a write has put there it may put
// there once more before it ends.
std::string WhyImpossible(const std::vector<Operation> &operations, bool takesLock);
