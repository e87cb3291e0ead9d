// Per-network parameters of a service: rows of data, one engine that reads, sets and removes them, and the
// exported operations on top of it. What differs between DHCP and NAT stands in their tables.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

struct ParameterRow;

// Judges a new value and logs why it is refused, under `function`.
using ParameterCheck = bool (*)(const char *function, const ParameterRow &row, uint32_t vnet,
                                const char *value);

struct ParameterRow {
    uint32_t id;
    const char *displayName;  // its double quotes are part of it
    const char *key;          // the field of VNET_<n>_<FIELD>; "" when there is none
    uint32_t externalId;      // 0: callers of the library cannot name it
    ParameterCheck check;     // null: cannot be set
    const char *constant;     // the default; null: computed, or none
};

// What the functions of one service say. Behind each format stand the arguments that it gets, in their order.
struct ParameterWords {
    // reading
    const char *stored;    // display name, value, vnet
    const char *notFound;  // display name, vnet
    uint32_t notFoundLevel;
    const char *reverting;
    const char *noSpace;  // as logNoSpace of the family fills it in
    // computing a default
    const char *defaultValue;    // display name, value, vnet
    const char *defaultNoSpace;  // as noSpace
    // setting
    const char *setDone;    // display name, value, vnet
    const char *setFailed;  // display name, vnet
    // an id that the function does not take: id
    const char *unknownGet;  // null: rowlessId is read
    const char *unknownDefault;
    const char *unknownSet;
};

// The words of the exported functions. Ids are the caller's. A format that takes the arguments in another
// order names them by position, all of them up to the last one that it uses: the C library cannot skip one.
struct ParameterApiWords {
    const char *getFunction;
    const char *getArguments;    // null: no argument line
    const char *getInvalid;      // vnet, buffer, length pointer, length
    const char *getUnsupported;  // id
    const char *mapped;          // external id, internal id
    const char *getDone;         // vnet, id, value, length
    const char *getFailed;       // vnet, id
    const char *setFunction;
    const char *setArguments;
    const char *setInvalid;      // vnet, value
    const char *setUnsupported;  // id
    const char *setMapped;       // external id, internal id
    const char *noMemory;
    const char *setDone;       // vnet, id, value
    const char *setFailed;     // vnet, id, value
    const char *deleteDone;    // vnet, id
    const char *deleteFailed;  // vnet, id
};

struct ParameterFamily {
    std::span<const ParameterRow> rows;
    const ParameterRow *rowlessId;  // read for an id without a row; null: such an id is refused
    uint32_t unknownId;             // what an external id that is not in the table maps to
    ParameterWords words;
    ParameterApiWords api;
    // A computed default: a text of at most 255 bytes. Logs its own reason under `function`.
    bool (*computeDefault)(const char *function, uint32_t id, uint32_t vnet, char *text, size_t size);
    // Says with `format` that a text of `needed` bytes does not fit `size`.
    void (*logNoSpace)(const char *function, const char *format, const ParameterRow &row, size_t size,
                       size_t needed);
    // The service's own functions, each with its name and its trace lines.
    uint32_t (*mapExternal)(uint32_t externalId);
    bool (*get)(uint32_t vnet, uint32_t id, bool useDefault, char *buffer, size_t size);
    bool (*getDefault)(uint32_t vnet, uint32_t id, char *buffer, size_t size);
    bool (*set)(uint32_t vnet, uint32_t id, const char *value);
    bool (*remove)(uint32_t vnet, uint32_t id);
};

// The work of the service's functions. Messages are logged under `function`, the name of the caller.

// The row of an internal id, or null.
const ParameterRow *HBLFindParameter(const ParameterFamily &family, uint32_t id);
// The internal id, or the family's unknown one after "Could not map external paramID: %u".
uint32_t HBLMapExternalParameter(const ParameterFamily &family, const char *function, uint32_t externalId);
// The stored value; without one, and with useDefault, the default. Sizes are in bytes, terminator included.
bool HBLGetParameter(const ParameterFamily &family, const char *function, uint32_t vnet, uint32_t id,
                     bool useDefault, char *buffer, size_t size);
bool HBLGetParameterDefault(const ParameterFamily &family, const char *function, uint32_t vnet, uint32_t id,
                            char *buffer, size_t size);
bool HBLSetParameter(const ParameterFamily &family, const char *function, uint32_t vnet, uint32_t id,
                     const char *value);

// One parameter of a network's clean-up, in its order, and the line for its failure.
struct ParameterRemoval {
    uint32_t id;
    const char *failed;
};
// Removes all but `keptId` (0: none). Goes on after a failure; false at the end if there was one.
bool HBLRemoveParameters(const ParameterFamily &family, const char *function, uint32_t vnet,
                         std::span<const ParameterRemoval> removals, uint32_t keptId = 0);

// The exported getter and setter behind their frames: argument line, argument test, lock, work, result line.
bool HBLApiGetParameter(const ParameterFamily &family, const char *vnet, uint32_t externalId, bool useDefault,
                        char *param, uint32_t *paramLen);
bool HBLApiSetParameter(const ParameterFamily &family, const char *vnet, uint32_t externalId,
                        const char *param, uint32_t paramLen);
