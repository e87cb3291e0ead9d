// Netlink attributes of nf_tables, as bytes that are joined by +.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

std::string Attribute(uint16_t type, std::string_view data);

// A number; those of nf_tables itself travel in network byte order.
std::string AttributeNumber(uint16_t type, uint32_t value);
std::string AttributeNumber64(uint16_t type, uint64_t value);

// A text with its terminator.
std::string AttributeText(uint16_t type, std::string_view text);

// An attribute that holds attributes.
std::string AttributeNest(uint16_t type, std::string_view attributes);

// The bytes of a value as it lies in memory: what packets and the kernel's own fields are compared with.
template <typename Value>
std::string BytesOf(const Value &value) {
    return std::string(reinterpret_cast<const char *>(&value), sizeof value);
}
