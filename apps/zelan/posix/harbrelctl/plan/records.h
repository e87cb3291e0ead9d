// Configuration as the database's records, which is what is compared, hashed and written.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "apps/zelan/posix/harbrelctl/model/network.h"

// In the order in which changes are written: a subnet stands before what needs one, and bridge mappings,
// which restart daemons, come last.
enum RecordKind { RECORD_ANSWER, RECORD_RESERVATION, RECORD_FORWARD, RECORD_DEFAULT_BRIDGE, RECORD_MAPPING };

struct RecordKey {
    RecordKind kind = RECORD_ANSWER;
    int network = NO_NETWORK;  // none for mappings and the default bridge
    int number = 0;            // the Field of an answer, the host port of a forward
    bool tcp = false;          // of a forward
    std::string name;          // MAC address of a reservation, adapter of a mapping
    auto operator<=>(const RecordKey &) const = default;
};

struct RecordValue {
    std::string text;      // value of an answer, note of a forward
    uint32_t address = 0;  // of a reservation, guest of a forward
    int number = 0;        // guest port of a forward, network of a mapping or of the default bridge
    bool operator==(const RecordValue &) const = default;
};

using Records = std::map<RecordKey, RecordValue>;

// A record that is added, removed or replaced.
struct RecordChange {
    RecordKey key;
    std::optional<RecordValue> before;
    std::optional<RecordValue> after;
    bool operator==(const RecordChange &) const = default;
};

Records RecordsOf(const Config &config);
std::vector<RecordChange> Difference(const Config &before, const Config &after);

// The settings with the changes made.
Config Applied(Config config, const std::vector<RecordChange> &changes);

// The record as it stands in the database.
std::string RecordText(const RecordKey &key, const RecordValue &value);

// SHA-256 of all records and of what runs on the given networks, in hexadecimal.
std::string StateHash(const Host &host, const std::vector<int> &networks);
