// The kernel's expressions, of which statements are made.
#pragma once

#include <linux/netfilter/nf_tables.h>

#include <cstdint>
#include <string>

#include "daemons/firewall/statements.h"

// Where values are kept within a rule: the first register, and the four-byte ones behind its first four
// bytes, in which the further parts of a concatenation stand.
inline constexpr uint32_t FIRST = NFT_REG_1;
inline constexpr uint32_t SECOND = NFT_REG32_01;
inline constexpr uint32_t THIRD = NFT_REG32_02;

// An expression by the name of its kind and its encoded attributes.
std::string Expression(const char *name, const std::string &attributes);

// Put something into a register: a fact about the packet (NFT_META_), or bytes of it, so many of them from
// that offset of a header (NFT_PAYLOAD_).
std::string Meta(uint32_t key, uint32_t destination = FIRST);
std::string Payload(uint32_t base, uint32_t offset, uint32_t size, uint32_t destination = FIRST);

// Go on if what stands in the first register, as it lies in memory, compares so (NFT_CMP_) with a value, or
// is or is not in a set.
std::string Compare(uint32_t operation, const std::string &value);
std::string CompareFor(Match match, const std::string &value);
std::string InSet(const char *set, Match match);

// Leaves of the first register the bits of the mask, and turns those of `toggle`, empty for none.
std::string MaskWith(const std::string &mask, const std::string &toggle = "");
// Shifts the number in the first register.
std::string ShiftLeft(uint32_t bits);

// Replaces the first two bytes of an IPv4 packet, of which the second is the type of service, by those in the
// first register.
std::string WriteServiceType();
