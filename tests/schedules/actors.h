// Those who use the database at once, each a process of its own that goes on until its time is over.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "tests/schedules/history.h"

// Nanoseconds of the clock that all processes share.
int64_t Now();

// From 0 on, below the limit.
uint32_t Draw(std::mt19937 *random, uint32_t limit);

struct Actor {
    uint32_t number;  // from 1 to 63: the values that it writes are its own
    std::mt19937 random;
    int64_t until;
    uint32_t pauseMicroseconds;  // at most, behind each step
    uint32_t joltsPerMille;
    bool withoutLock;                  // changes only what takes none
    std::vector<Operation> done = {};  // what was acknowledged
    uint32_t taken = 0;
};

// From now on this process pauses at so many of a thousand calls that touch files.
void JoltCalls(uint32_t seed, uint32_t perMille);

// Leaves the library loaded if it can be. What was read at the load holds at some moment of it.
bool LoadAndRead(Actor *actor);

// Each gives false when something is not as it must be, which it has printed.
bool Write(Actor *actor);   // loads, changes places, unloads
bool Look(Actor *actor);    // loads, reads all places, unloads
bool Import(Actor *actor);  // puts a whole database in the place of the one there
bool Edit(Actor *actor);    // runs harbrelctl
