// What is stored for one network: the records of the database that belong to it, with a type where the editor
// knows one. Pure: nothing here asks the library.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "apps/zelan/posix/harbrelctl/model/address.h"

inline constexpr int NETWORK_COUNT = 256;
inline constexpr int NO_NETWORK = -1;
inline constexpr int NAT_NETWORK = 8;  // those that an installation makes by default

// The answers of a network, in the order in which they are written: a subnet comes before what needs one.
enum Field {
    FIELD_SUBNET,
    FIELD_MASK,
    FIELD_ADAPTER_ADDRESS,
    FIELD_ADAPTER_NAME,
    FIELD_RANGE_FIRST,
    FIELD_RANGE_LAST,
    FIELD_LEASE_TIME,
    FIELD_MAX_LEASE_TIME,
    FIELD_SERVER_LEASE_TIME,
    FIELD_SERVER_MAX_LEASE_TIME,
    FIELD_BROADCAST,
    FIELD_DNS,
    FIELD_DOMAIN,
    FIELD_ROUTERS,
    FIELD_GATEWAY,
    FIELD_GATEWAY_MASK,
    FIELD_DEVICE,
    FIELD_ACTIVE_FTP,
    FIELD_ANY_OUI,
    FIELD_UDP_TIMEOUT,
    FIELD_CONFIG_PORT,
    FIELD_DHCP,  // the three switches: "yes", or nothing
    FIELD_NAT,
    FIELD_ADAPTER,
    FIELD_COUNT
};

// Which service takes up a changed value, as bits.
enum ServiceMask : unsigned { USES_DHCP = 1, USES_NAT = 2, USES_ADAPTER = 4 };

struct FieldRow {
    const char *suffix;  // of the key VNET_<n>_<suffix>
    const char *name;    // for people: a key of `set`, or part of one
    unsigned takenUpBy;  // ServiceMask
};
extern const std::array<FieldRow, FIELD_COUNT> FIELDS;

struct Forward {
    bool tcp = true;
    uint16_t hostPort = 0;
    uint32_t guest = 0;
    uint16_t guestPort = 0;
    std::string note;
    bool operator==(const Forward &) const = default;
};

struct Reservation {
    std::string mac;  // as StandardMac
    uint32_t address = 0;
    bool operator==(const Reservation &) const = default;
};

struct NetworkConfig {
    std::array<std::optional<std::string>, FIELD_COUNT> stored;
    std::vector<Forward> forwards;          // by protocol (TCP first) and host port
    std::vector<Reservation> reservations;  // by address, then MAC
    bool operator==(const NetworkConfig &) const = default;

    bool Has(Field field) const { return stored[field].has_value(); }
    bool IsOn(Field field) const;  // of a switch
    // Only with an address and a mask that fit each other.
    std::optional<Subnet> NetworkSubnet() const;
    bool IsEmpty() const { return *this == NetworkConfig(); }
};

// Puts the lists into their order.
void Normalize(NetworkConfig *config);

// The stored value, or the one that the library computes without one; nothing when there is no such default,
// for want of a subnet for example.
std::optional<std::string> EffectiveValue(int network, const NetworkConfig &config, Field field);
std::optional<uint32_t> EffectiveAddress(int network, const NetworkConfig &config, Field field);

// All that is configured on this host.
struct Config {
    std::array<NetworkConfig, NETWORK_COUNT> networks;
    int defaultBridge = 0;                // the network of adapters without a mapping: 0 or NO_NETWORK
    std::map<std::string, int> mappings;  // adapter to network; NO_NETWORK keeps it out
    bool operator==(const Config &) const = default;
};

// Whether something bridges the network, existing adapter or not.
bool IsBridged(const Config &config, int network);
// With a mapping to this network, in the order of their names.
std::vector<std::string> MappedAdapters(const Config &config, int network);

std::string NetworkName(int network);
// "zelan8", in any case, or "8".
std::optional<int> ParseNetwork(std::string_view text);
