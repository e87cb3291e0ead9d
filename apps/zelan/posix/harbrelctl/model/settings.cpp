#include "apps/zelan/posix/harbrelctl/model/settings.h"

#include <strings.h>

#include <algorithm>
#include <utility>

namespace {

constexpr std::string_view NAME_PREFIX = "zelan";

constexpr unsigned ALL = USES_DHCP | USES_NAT | USES_ADAPTER;

// Defaults that do not depend on the subnet.
const char *FixedDefault(Field field) {
    switch (field) {
        case FIELD_LEASE_TIME:
        case FIELD_SERVER_LEASE_TIME:
            return "1800";
        case FIELD_MAX_LEASE_TIME:
        case FIELD_SERVER_MAX_LEASE_TIME:
            return "7200";
        case FIELD_DOMAIN:
            return "localdomain";
        case FIELD_ACTIVE_FTP:
        case FIELD_ANY_OUI:
            return "1";
        case FIELD_UDP_TIMEOUT:
            return "60";
        case FIELD_CONFIG_PORT:
            return "33445";
        default:
            return nullptr;
    }
}

std::optional<uint32_t> AddressDefault(const NetworkConfig &config, const Subnet &subnet, Field field) {
    switch (field) {
        case FIELD_ADAPTER_ADDRESS:
            return subnet.address + 1;
        case FIELD_RANGE_FIRST:
            return (subnet.address | ((0U - subnet.mask) >> 1U)) + 1;
        case FIELD_RANGE_LAST:
            return subnet.Last() - 1;
        case FIELD_BROADCAST:
            return subnet.Last();
        case FIELD_DNS:
            return subnet.address + (config.IsOn(FIELD_NAT) ? 2 : 1);
        case FIELD_ROUTERS:
        case FIELD_GATEWAY:
            return subnet.address + 2;
        case FIELD_GATEWAY_MASK:
            return subnet.mask;
        default:
            return std::nullopt;
    }
}

}  // namespace

constinit const std::array<FieldRow, FIELD_COUNT> FIELDS = {{
    {"HOSTONLY_SUBNET", "subnet", ALL},
    {"HOSTONLY_NETMASK", "subnet", ALL},
    {"VIRTUAL_ADAPTER_ADDR", "adapter-address", USES_ADAPTER},
    {"VIRTUAL_ADAPTER_NAME", "adapter-name", USES_ADAPTER},
    {"DHCP_PARAM_LEASE_START_IP", "range", USES_DHCP},
    {"DHCP_PARAM_LEASE_END_IP", "range", USES_DHCP},
    {"DHCP_PARAM_SUB_DEFAULT_LEASE_TIME", "lease-time", USES_DHCP},
    {"DHCP_PARAM_SUB_MAX_LEASE_TIME", "max-lease-time", USES_DHCP},
    {"DHCP_PARAM_DEFAULT_LEASE_TIME", "server-lease-time", USES_DHCP},
    {"DHCP_PARAM_MAX_LEASE_TIME", "server-max-lease-time", USES_DHCP},
    {"DHCP_PARAM_BROADCAST_ADDR", "broadcast", USES_DHCP},
    {"DHCP_PARAM_DNS_ADDR", "dns", USES_DHCP},
    {"DHCP_PARAM_DOMAIN_NAME", "domain", USES_DHCP},
    {"DHCP_PARAM_ROUTERS", "routers", USES_DHCP},
    {"NAT_PARAM_GATEWAY_IP", "gateway", USES_NAT},
    {"NAT_PARAM_INT_GATEWAY_IPSUBNETMASK", "gateway-mask", USES_NAT},
    {"NAT_PARAM_DEVICE", "device", USES_NAT},
    {"NAT_PARAM_ACTIVE_FTP", "active-ftp", USES_NAT},
    {"NAT_PARAM_ALLOW_ANY_OUI", "any-oui", USES_NAT},
    {"NAT_PARAM_UDP_TIMEOUT", "udp-timeout", USES_NAT},
    {"NAT_PARAM_CONFIG_PORT", "config-port", 0},
    {"DHCP", "dhcp", USES_DHCP},
    {"NAT", "nat", USES_NAT | USES_DHCP},  // the DHCP file names the gateway
    {"VIRTUAL_ADAPTER", "adapter", USES_ADAPTER},
}};

bool NetworkConfig::IsOn(Field field) const {
    return Has(field) && strcasecmp(stored[field]->c_str(), "yes") == 0;
}

std::optional<Subnet> NetworkConfig::NetworkSubnet() const {
    if (!Has(FIELD_SUBNET) || !Has(FIELD_MASK)) {
        return std::nullopt;
    }
    return SubnetOf(*stored[FIELD_SUBNET], *stored[FIELD_MASK]);
}

void Normalize(NetworkConfig *config) {
    std::ranges::sort(config->forwards, {},
                      [](const Forward &forward) { return std::pair(!forward.tcp, forward.hostPort); });
    std::ranges::sort(config->reservations, {},
                      [](const Reservation &tie) { return std::pair(tie.address, tie.mac); });
}

std::optional<std::string> EffectiveValue(int network, const NetworkConfig &config, Field field) {
    if (config.Has(field)) {
        return config.stored[field];
    }
    if (const char *fixed = FixedDefault(field); fixed != nullptr) {
        return fixed;
    }
    if (field == FIELD_ADAPTER_NAME) {
        return NetworkName(network);
    }
    if (field == FIELD_DEVICE) {
        return "/dev/" + NetworkName(network);
    }
    const std::optional<Subnet> subnet = config.NetworkSubnet();
    const std::optional<uint32_t> address =
        subnet ? AddressDefault(config, *subnet, field) : std::optional<uint32_t>();
    return address ? std::optional(AddressText(*address)) : std::nullopt;
}

std::optional<uint32_t> EffectiveAddress(int network, const NetworkConfig &config, Field field) {
    const std::optional<std::string> text = EffectiveValue(network, config, field);
    return text ? ParseAddress(*text) : std::nullopt;
}

std::vector<std::string> MappedAdapters(const Config &config, int network) {
    std::vector<std::string> names;
    for (const auto &[adapter, mapped] : config.mappings) {
        if (mapped == network) {
            names.push_back(adapter);
        }
    }
    return names;
}

bool IsBridged(const Config &config, int network) {
    return network == config.defaultBridge || !MappedAdapters(config, network).empty();
}

std::string NetworkName(int network) {
    return std::string(NAME_PREFIX) + std::to_string(network);
}

std::optional<int> ParseNetwork(std::string_view text) {
    if (text.size() > NAME_PREFIX.size() &&
        strncasecmp(text.data(), NAME_PREFIX.data(), NAME_PREFIX.size()) == 0) {
        text.remove_prefix(NAME_PREFIX.size());
    }
    const std::optional<uint32_t> number = ParseNumber(text, NETWORK_COUNT - 1);
    return number ? std::optional(static_cast<int>(*number)) : std::nullopt;
}
