// Per-network parameters of a service: rows of data, and one engine that reads, sets and removes them. What
// differs between DHCP and NAT stands in their families.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "lib/harbrel/base/hblLog.h"

struct ParameterRow;

// Judges a new value and logs why it is refused.
using ParameterCheck = bool (*)(FunctionLog log, const ParameterRow &row, uint32_t vnet, const char *value);

struct ParameterRow {
    uint32_t id;
    const char *displayName;  // its double quotes are part of it
    const char *key;          // the field of VNET_<n>_<FIELD>; "" when there is none
    uint32_t externalId;      // 0: callers of the library cannot name it
    ParameterCheck check;     // null: cannot be set
    const char *constant;     // the default; null: computed, or none
};

struct ParameterFamily {
    std::span<const ParameterRow> rows;
    const ParameterRow *rowForUnknown;  // read for an id without a row; null: such an id is refused
    uint32_t unknownId;                 // what an external id that is not in the table maps to
    const char *service;                // "DHCP"
    const char *lookedFor;              // what "... DHCP parameter: %s not found" begins with
    uint32_t notFoundLevel;
    const char *reverting;  // to the default
    // What stands in the log for an id that cannot be read and for one that cannot be set.
    void (*logUnreadable)(FunctionLog log, uint32_t id);
    void (*logUnsettable)(FunctionLog log, uint32_t id);
    // And for a text of `needed` bytes, stored or a default, that does not fit `size`.
    void (*logNoSpace)(FunctionLog log, const ParameterRow &row, size_t size, size_t needed);
    void (*logNoSpaceForDefault)(FunctionLog log, const ParameterRow &row, size_t size, size_t needed);
    // A computed default: a text of at most 255 bytes. Logs its own reason.
    bool (*computeDefault)(FunctionLog log, uint32_t id, uint32_t vnet, char *text, size_t size);
    // The service's own function, which calls HBLGetParameterDefault under its name.
    bool (*getDefault)(uint32_t vnet, uint32_t id, char *buffer, size_t size);
};

// The work of the service's functions, under their names.

// The row of an internal id, or null.
const ParameterRow *HBLFindParameter(const ParameterFamily &family, uint32_t id);
// The internal id, or the family's unknown one after "Could not map external paramID: %u".
uint32_t HBLMapExternalParameter(const ParameterFamily &family, FunctionLog log, uint32_t externalId);
bool HBLGetParameter(const ParameterFamily &family, FunctionLog log, uint32_t vnet, uint32_t id,
                     bool useDefault, char *buffer, size_t size);
bool HBLGetParameterDefault(const ParameterFamily &family, FunctionLog log, uint32_t vnet, uint32_t id,
                            char *buffer, size_t size);
bool HBLSetParameter(const ParameterFamily &family, FunctionLog log, uint32_t vnet, uint32_t id,
                     const char *value);

// One parameter of a network's clean-up, in its order, and the line for its failure.
struct ParameterRemoval {
    uint32_t id;
    const char *failed;
};
// Removes all but `keptId` (0: none) by the service's own function. Goes on after a failure; false at the end
// if there was one.
bool HBLRemoveParameters(FunctionLog log, bool (*remove)(uint32_t vnet, uint32_t id), uint32_t vnet,
                         std::span<const ParameterRemoval> removals, uint32_t keptId = 0);
