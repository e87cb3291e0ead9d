// The keys that people set: each stands for one field of the settings or two.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "apps/zelan/posix/harbrelctl/model/settings.h"

struct KeyRow {
    const char *name;
    Field field;
    Field second;  // of a pair; FIELD_COUNT without one
    const char *allowed;
    // Stores the value; false when its form is wrong.
    bool (*set)(const KeyRow &row, const std::string &value, NetworkConfig *config);
};
std::span<const KeyRow> Keys();
const KeyRow *FindKey(std::string_view name);  // null when there is none

// Whether the key says anything about the network: something is stored, or the service that takes it up is
// on.
bool KeyApplies(const KeyRow &row, const NetworkConfig &config);
// As it is written; without a stored value the default, or nothing when there is none.
std::string KeyValue(const KeyRow &row, int network, const NetworkConfig &config);
bool KeyIsStored(const KeyRow &row, const NetworkConfig &config);
void UnsetKey(const KeyRow &row, NetworkConfig *config);

// "KEY=VALUE"; what is wrong with it, or an empty text.
std::string Assign(const std::string &assignment, NetworkConfig *config);

// "on", "yes", "true", "1" and their opposites.
std::optional<bool> ParseSwitch(std::string_view text);
