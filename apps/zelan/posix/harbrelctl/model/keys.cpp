#include "apps/zelan/posix/harbrelctl/model/keys.h"

#include <array>

namespace {

constexpr const char *ADDRESS = "an IPv4 address";
constexpr const char *SWITCH = "on or off";
constexpr const char *SECONDS = "seconds, 0 to 999999999";

bool SetPlain(const KeyRow &row, const std::string &value, NetworkConfig *config) {
    config->stored[row.field] = value;
    return !value.empty();
}

bool SetAddress(const KeyRow &row, const std::string &value, NetworkConfig *config) {
    config->stored[row.field] = value;
    return ParseAddress(value).has_value();
}

bool SetSubnet(const KeyRow &row, const std::string &value, NetworkConfig *config) {
    const std::optional<Subnet> subnet = ParseSubnet(value);
    if (!subnet) {
        return false;
    }
    config->stored[row.field] = AddressText(subnet->address);
    config->stored[row.second] = AddressText(subnet->mask);
    return true;
}

bool SetRange(const KeyRow &row, const std::string &value, NetworkConfig *config) {
    const size_t dash = value.find('-');
    if (dash == std::string::npos) {
        return false;
    }
    config->stored[row.field] = value.substr(0, dash);
    config->stored[row.second] = value.substr(dash + 1);
    return ParseAddress(*config->stored[row.field]) && ParseAddress(*config->stored[row.second]);
}

bool SetService(const KeyRow &row, const std::string &value, NetworkConfig *config) {
    const std::optional<bool> on = ParseSwitch(value);
    config->stored[row.field] = on.value_or(false) ? std::optional<std::string>("yes") : std::nullopt;
    return on.has_value();
}

bool SetFlag(const KeyRow &row, const std::string &value, NetworkConfig *config) {
    const std::optional<bool> on = ParseSwitch(value);
    config->stored[row.field] = on.value_or(false) ? "1" : "0";
    return on.has_value();
}

bool SetSeconds(const KeyRow &row, const std::string &value, NetworkConfig *config) {
    config->stored[row.field] = value;
    return ParseNumber(value, 999999999).has_value();
}

// A name with a dot is only taken in quotes, which the daemon's file wants.
bool SetDomain(const KeyRow &row, const std::string &value, NetworkConfig *config) {
    const bool plain = value.find('.') == std::string::npos || value.starts_with('"');
    config->stored[row.field] = plain ? value : "\"" + value + "\"";
    return !value.empty();
}

constexpr std::array<KeyRow, 15> KEYS = {{
    {"subnet", FIELD_SUBNET, FIELD_MASK, "ADDRESS/PREFIX of a network, as 192.168.8.0/24", SetSubnet},
    {"dhcp", FIELD_DHCP, FIELD_COUNT, SWITCH, SetService},
    {"nat", FIELD_NAT, FIELD_COUNT, SWITCH, SetService},
    {"adapter", FIELD_ADAPTER, FIELD_COUNT, SWITCH, SetService},
    {"adapter-address", FIELD_ADAPTER_ADDRESS, FIELD_COUNT, ADDRESS, SetAddress},
    {"adapter-name", FIELD_ADAPTER_NAME, FIELD_COUNT, "an interface name", SetPlain},
    {"range", FIELD_RANGE_FIRST, FIELD_RANGE_LAST, "FIRST-LAST, two IPv4 addresses", SetRange},
    {"lease-time", FIELD_LEASE_TIME, FIELD_COUNT, SECONDS, SetSeconds},
    {"max-lease-time", FIELD_MAX_LEASE_TIME, FIELD_COUNT, SECONDS, SetSeconds},
    {"dns", FIELD_DNS, FIELD_COUNT, ADDRESS, SetAddress},
    {"domain", FIELD_DOMAIN, FIELD_COUNT, "a domain name", SetDomain},
    {"routers", FIELD_ROUTERS, FIELD_COUNT, ADDRESS, SetAddress},
    {"gateway", FIELD_GATEWAY, FIELD_COUNT, ADDRESS, SetAddress},
    {"active-ftp", FIELD_ACTIVE_FTP, FIELD_COUNT, SWITCH, SetFlag},
    {"udp-timeout", FIELD_UDP_TIMEOUT, FIELD_COUNT, "seconds, 0 to 999999999, 0 for never", SetSeconds},
}};

bool IsService(Field field) {
    return field == FIELD_DHCP || field == FIELD_NAT || field == FIELD_ADAPTER;
}

std::string Unquoted(const std::string &text) {
    return text.size() > 1 && text.front() == '"' && text.back() == '"' ? text.substr(1, text.size() - 2)
                                                                        : text;
}

}  // namespace

std::span<const KeyRow> Keys() {
    return KEYS;
}

const KeyRow *FindKey(std::string_view name) {
    for (const KeyRow &row : KEYS) {
        if (name == row.name) {
            return &row;
        }
    }
    return nullptr;
}

bool KeyIsStored(const KeyRow &row, const NetworkConfig &config) {
    return config.Has(row.field) || (row.second != FIELD_COUNT && config.Has(row.second));
}

bool KeyApplies(const KeyRow &row, const NetworkConfig &config) {
    if (KeyIsStored(row, config) || IsService(row.field)) {
        return true;
    }
    const unsigned users = FIELDS[row.field].takenUpBy;
    const bool toGuests = (users & USES_DHCP) != 0 && config.IsOn(FIELD_DHCP);
    return (toGuests && (row.field != FIELD_ROUTERS || config.IsOn(FIELD_NAT))) ||
           ((users & USES_NAT) != 0 && config.IsOn(FIELD_NAT)) ||
           ((users & USES_ADAPTER) != 0 && config.IsOn(FIELD_ADAPTER));
}

std::string KeyValue(const KeyRow &row, int network, const NetworkConfig &config) {
    if (row.field == FIELD_SUBNET) {
        const std::optional<Subnet> subnet = config.NetworkSubnet();
        return subnet ? SubnetText(*subnet) : "";
    }
    if (IsService(row.field)) {
        return config.IsOn(row.field) ? "on" : "off";
    }
    const std::string value = EffectiveValue(network, config, row.field).value_or("");
    if (row.field == FIELD_ACTIVE_FTP) {
        return value == "1" ? "on" : "off";
    }
    return row.second == FIELD_COUNT ? Unquoted(value)
                                     : value + "-" + EffectiveValue(network, config, row.second).value_or("");
}

void UnsetKey(const KeyRow &row, NetworkConfig *config) {
    config->stored[row.field].reset();
    if (row.second != FIELD_COUNT) {
        config->stored[row.second].reset();
    }
}

std::string Assign(const std::string &assignment, NetworkConfig *config) {
    const size_t equals = assignment.find('=');
    if (equals == std::string::npos) {
        return "\"" + assignment + "\" is no KEY=VALUE";
    }
    const std::string name = assignment.substr(0, equals);
    const std::string value = assignment.substr(equals + 1);
    const KeyRow *const row = FindKey(name);
    if (row == nullptr) {
        std::string all;
        for (const KeyRow &key : KEYS) {
            all += std::string(" ") + key.name;
        }
        return "there is no key \"" + name + "\":" + all;
    }
    if (!row->set(*row, value, config)) {
        return name + " \"" + value + "\" is not allowed: " + row->allowed;
    }
    return "";
}

std::optional<bool> ParseSwitch(std::string_view text) {
    for (const char *yes : {"on", "yes", "true", "1"}) {
        if (text == yes) {
            return true;
        }
    }
    for (const char *no : {"off", "no", "false", "0"}) {
        if (text == no) {
            return false;
        }
    }
    return std::nullopt;
}
