// IPv4 addresses, subnets and MAC addresses as people write them. Addresses are numbers in host order.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

struct Subnet {
    uint32_t address = 0;  // of the network: no bit outside the mask
    uint32_t mask = 0;     // its ones in front

    uint32_t Last() const { return address | ~mask; }  // the broadcast address
    bool Contains(uint32_t host) const { return (host & mask) == address; }
    bool operator==(const Subnet &) const = default;
};

inline bool Overlap(const Subnet &a, const Subnet &b) {
    return a.Contains(b.address) || b.Contains(a.address);
}

std::optional<uint32_t> ParseAddress(std::string_view text);
std::string AddressText(uint32_t address);

// "192.168.8.0/24"; bits behind the prefix are refused, as is a prefix above 32.
std::optional<Subnet> ParseSubnet(std::string_view text);
std::string SubnetText(const Subnet &subnet);
// Of an address in the subnet and a dotted mask; nothing when the mask's ones are not in front.
std::optional<Subnet> SubnetOf(std::string_view address, std::string_view mask);
uint32_t MaskOf(unsigned prefix);
unsigned PrefixOf(uint32_t mask);

// Upper case with two digits a field, which is how the library hands them out.
std::optional<std::string> StandardMac(std::string_view text);

// Decimal digits alone, up to `limit`.
std::optional<uint32_t> ParseNumber(std::string_view text, uint32_t limit);
