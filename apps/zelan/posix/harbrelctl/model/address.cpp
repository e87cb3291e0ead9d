#include "apps/zelan/posix/harbrelctl/model/address.h"

#include <arpa/inet.h>

#include <bit>
#include <cctype>
#include <charconv>
#include <cstdio>

namespace {

constexpr unsigned MAC_BYTES = 6;

// One field of a MAC address from the front of the text.
std::optional<unsigned> TakeMacField(std::string_view *text, bool last) {
    const size_t end = last ? text->size() : text->find(':');
    if (end > 2) {
        return std::nullopt;
    }
    unsigned value = 0;
    const char *const stop = text->data() + end;
    const auto [rest, error] = std::from_chars(text->data(), stop, value, 16);
    if (error != std::errc() || rest != stop) {
        return std::nullopt;
    }
    text->remove_prefix(last ? end : end + 1);
    return value;
}

}  // namespace

std::optional<uint32_t> ParseAddress(std::string_view text) {
    in_addr address = {};
    if (inet_pton(AF_INET, std::string(text).c_str(), &address) != 1) {
        return std::nullopt;
    }
    return ntohl(address.s_addr);
}

std::string AddressText(uint32_t address) {
    char text[INET_ADDRSTRLEN];
    const in_addr network = {htonl(address)};
    return inet_ntop(AF_INET, &network, text, sizeof text) != nullptr ? text : "";
}

std::optional<uint32_t> ParseNumber(std::string_view text, uint32_t limit) {
    uint32_t value = 0;
    const char *const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || rest != end || value > limit) {
        return std::nullopt;
    }
    return value;
}

uint32_t MaskOf(unsigned prefix) {
    return prefix == 0 ? 0 : ~uint32_t{0} << (32 - prefix);
}

unsigned PrefixOf(uint32_t mask) {
    return static_cast<unsigned>(std::countl_one(mask));
}

std::optional<Subnet> ParseSubnet(std::string_view text) {
    const size_t slash = text.find('/');
    if (slash == std::string_view::npos) {
        return std::nullopt;
    }
    const std::optional<uint32_t> address = ParseAddress(text.substr(0, slash));
    const std::optional<uint32_t> prefix = ParseNumber(text.substr(slash + 1), 32);
    if (!address || !prefix || (*address & ~MaskOf(*prefix)) != 0) {
        return std::nullopt;
    }
    return Subnet{*address, MaskOf(*prefix)};
}

std::string SubnetText(const Subnet &subnet) {
    return AddressText(subnet.address) + "/" + std::to_string(PrefixOf(subnet.mask));
}

std::optional<Subnet> SubnetOf(std::string_view address, std::string_view mask) {
    const std::optional<uint32_t> any = ParseAddress(address);
    const std::optional<uint32_t> ones = ParseAddress(mask);
    if (!any || !ones || MaskOf(PrefixOf(*ones)) != *ones) {
        return std::nullopt;
    }
    return Subnet{*any & *ones, *ones};
}

std::optional<std::string> StandardMac(std::string_view text) {
    std::string standard;
    for (unsigned field = 0; field < MAC_BYTES; field++) {
        const std::optional<unsigned> value = TakeMacField(&text, field == MAC_BYTES - 1);
        if (!value) {
            return std::nullopt;
        }
        char digits[4];
        snprintf(digits, sizeof digits, "%02X", *value & 0xffU);
        standard += field == 0 ? "" : ":";
        standard += digits;
    }
    return standard;
}
