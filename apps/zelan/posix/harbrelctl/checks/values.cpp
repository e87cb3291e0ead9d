#include <algorithm>
#include <initializer_list>

#include "apps/zelan/posix/harbrelctl/checks/checks.h"

namespace {

constexpr uint32_t LONGEST_TIME = 999999999;  // what the generated files take
constexpr size_t LONGEST_NAME = 15;           // of an interface
constexpr size_t LONGEST_DOMAIN = 63;

bool IsNameCharacter(char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
           (character >= '0' && character <= '9') || character == '-' || character == '_' || character == '.';
}

bool IsName(const std::string &text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), IsNameCharacter);
}

bool IsTime(const std::string &text) {
    return ParseNumber(text, LONGEST_TIME).has_value();
}

bool IsSwitch(const std::string &text) {
    return text == "0" || text == "1";
}

// It stands in dhcpd.conf as it is, quotes included.
bool IsDomain(const std::string &text) {
    const bool quoted = text.size() > 2 && text.front() == '"' && text.back() == '"';
    const std::string name = quoted ? text.substr(1, text.size() - 2) : text;
    return text.size() <= LONGEST_DOMAIN && IsName(name) && (quoted || name.find('.') == std::string::npos);
}

bool IsInterface(const std::string &text) {
    return IsName(text) && text.size() <= LONGEST_NAME && text != "." && text != "..";
}

bool IsAddress(const std::string &text) {
    return ParseAddress(text).has_value();
}

struct ValueRow {
    Field field;
    bool (*isGood)(const std::string &text);
    const char *allowed;
};

constexpr ValueRow VALUES[] = {
    {FIELD_LEASE_TIME, IsTime, "seconds, 0 to 999999999"},
    {FIELD_MAX_LEASE_TIME, IsTime, "seconds, 0 to 999999999"},
    {FIELD_UDP_TIMEOUT, IsTime, "seconds, 0 to 999999999, 0 for never"},
    {FIELD_ACTIVE_FTP, IsSwitch, "on or off"},
    {FIELD_DNS, IsAddress, "an IPv4 address"},
    {FIELD_ROUTERS, IsAddress, "an IPv4 address"},
    {FIELD_GATEWAY, IsAddress, "an IPv4 address"},
    {FIELD_ADAPTER_ADDRESS, IsAddress, "an IPv4 address"},
    {FIELD_RANGE_FIRST, IsAddress, "two IPv4 addresses, FIRST-LAST"},
    {FIELD_RANGE_LAST, IsAddress, "two IPv4 addresses, FIRST-LAST"},
    {FIELD_DOMAIN, IsDomain, "letters, digits, hyphens and dots, at most 63"},
    {FIELD_ADAPTER_NAME, IsInterface, "an interface name of at most 15 letters, digits, '-', '_' and '.'"},
};

}  // namespace

void CheckPlainValues(const NetworkConfig &settings, int network, Problems *problems) {
    for (const ValueRow &row : VALUES) {
        if (settings.Has(row.field) && !row.isGood(*settings.stored[row.field])) {
            problems->push_back({"value-malformed", PROBLEM_VALUE, network,
                                 std::string(FIELDS[row.field].name) + " \"" + *settings.stored[row.field] +
                                     "\" is not allowed: " + row.allowed});
        }
    }
    const auto time = [&](Field field) {
        return ParseNumber(EffectiveValue(network, settings, field).value_or(""), LONGEST_TIME);
    };
    const std::optional<uint32_t> usual = time(FIELD_LEASE_TIME);
    const std::optional<uint32_t> longest = time(FIELD_MAX_LEASE_TIME);
    if (usual && longest && *usual > *longest) {
        problems->push_back({"lease-time-above-maximum", PROBLEM_VALUE, network,
                             "lease-time " + std::to_string(*usual) + " is above max-lease-time " +
                                 std::to_string(*longest)});
    }
}
