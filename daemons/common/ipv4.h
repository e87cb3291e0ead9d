// IPv4 addresses as numbers in host byte order, and as text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

using Ipv4 = uint32_t;

// A dotted quad: four decimal fields of one to three digits, each at most 255, and nothing else.
bool Ipv4_Parse(std::string_view text, Ipv4 *address);

std::string Ipv4_Text(Ipv4 address);

// The address in four bytes as they go over the wire.
Ipv4 Ipv4_OfWire(const char *bytes);

// The mask of a prefix of 0 to 32 bits, and back; false for a mask with a hole.
Ipv4 Ipv4_Mask(int prefix);
bool Ipv4_Prefix(Ipv4 mask, int *prefix);

// A subnet, by any address in it.
struct Ipv4Subnet {
    Ipv4 address = 0;
    int prefix = 32;

    Ipv4 first() const { return address & Ipv4_Mask(prefix); }  // the network's own address
    Ipv4 last() const { return address | ~Ipv4_Mask(prefix); }  // the broadcast address
    bool Contains(Ipv4 other) const { return other >= first() && other <= last(); }
    // Whether a machine can have this address.
    bool HasHost(Ipv4 other) const { return other > first() && other < last(); }
};
