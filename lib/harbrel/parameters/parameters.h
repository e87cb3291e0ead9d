// Per-network parameters of a service: rows of data, one engine that reads, sets and removes them, and the
// exported operations on top of it. What differs between DHCP and NAT stands in their tables.
//
// Formats of the words below name their arguments by position where the order differs between the services.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

struct ParameterFamily;
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

// What the functions of one service say. Text arguments, by position, stand behind each format.
struct ParameterWords {
    // reading, logged under getFunction
    const char *getFunction;
    const char *stored;    // 1 display name, 2 value, 3 vnet
    const char *notFound;  // 1 display name, 2 vnet
    uint32_t notFoundLevel;
    const char *reverting;  // none
    const char *noSpace;    // 1 id, 2 size, 3 display name, 4 size needed
    // computing a default, logged under defaultFunction
    const char *defaultFunction;
    const char *defaultValue;    // 1 display name, 2 value, 3 vnet
    const char *defaultNoSpace;  // as noSpace
    const char *unknownDefault;  // 1 id
    // setting
    const char *setFunction;
    const char *unknownSet;  // 1 id
    const char *setDone;     // 1 display name, 2 value, 3 vnet
    const char *setFailed;   // 1 display name, 2 vnet
};

// The words of the exported functions. Ids are the caller's.
struct ParameterApiWords {
    const char *getFunction;
    const char *getArguments;    // null: no argument line
    const char *getInvalid;      // 1 vnet, 2 buffer, 3 length pointer, 4 length
    const char *getUnsupported;  // 1 id
    const char *mapped;          // 1 external id, 2 internal id
    const char *getDone;         // 1 vnet, 2 id, 3 value, 4 length
    const char *getFailed;       // 1 vnet, 2 id
    const char *setFunction;
    const char *setArguments;
    const char *setInvalid;      // 1 vnet, 2 value
    const char *setUnsupported;  // 1 id
    const char *setMapped;       // 1 external id, 2 internal id
    const char *noMemory;
    const char *setDone;       // 1 vnet, 2 id, 3 value
    const char *setFailed;     // 1 vnet, 2 id, 3 value
    const char *deleteDone;    // 1 vnet, 2 id
    const char *deleteFailed;  // 1 vnet, 2 id
};

struct ParameterFamily {
    std::span<const ParameterRow> rows;
    ParameterWords words;
    ParameterApiWords api;
    uint32_t unknownId;  // what an external id that is not in the table maps to
    // The computed defaults: a text of at most 255 bytes. Logs its own reason.
    bool (*computeDefault)(const ParameterRow &row, uint32_t vnet, char *text, size_t size);
    uint32_t (*mapExternal)(uint32_t externalId);
    bool (*get)(uint32_t vnet, uint32_t id, bool useDefault, char *buffer, size_t size);
    bool (*set)(uint32_t vnet, uint32_t id, const char *value);
    bool (*remove)(uint32_t vnet, uint32_t id);
};

constexpr size_t PARAMETER_DEFAULT_SIZE = 256;

// The row of an internal id, or null.
const ParameterRow *HBLFindParameter(const ParameterFamily &family, uint32_t id);
// The internal id, or the family's unknown one after "Could not map external paramID: %u" under `function`.
uint32_t HBLMapExternalParameter(const ParameterFamily &family, const char *function, uint32_t externalId);

// The stored value; without one, and with useDefault, the default. `row` is of the family.
bool HBLGetParameter(const ParameterFamily &family, const ParameterRow &row, uint32_t vnet, bool useDefault,
                     char *buffer, size_t size);
// `row` null or without a default: refused as an unknown id.
bool HBLGetParameterDefault(const ParameterFamily &family, const ParameterRow *row, uint32_t id,
                            uint32_t vnet, char *buffer, size_t size);
bool HBLSetParameter(const ParameterFamily &family, uint32_t id, uint32_t vnet, const char *value);

// The exported getter and setter behind their frames: argument line, argument test, lock, work, result line.
bool HBLApiGetParameter(const ParameterFamily &family, const char *vnet, uint32_t externalId, bool useDefault,
                        char *param, uint32_t *paramLen);
bool HBLApiSetParameter(const ParameterFamily &family, const char *vnet, uint32_t externalId,
                        const char *param, uint32_t paramLen);

// One parameter of a network's clean-up, in its order, and the line for its failure.
struct ParameterRemoval {
    uint32_t id;
    const char *failed;
};
// Goes on after a failure; false at the end if there was one.
bool HBLRemoveParameters(const ParameterFamily &family, const char *function, uint32_t vnet,
                         std::span<const ParameterRemoval> removals);
