// The statements of which rules consist, in the order in which nft(8) would write them: a rule acts on what
// all of its matches let through. Each is the encoded list of the kernel's expressions for it.
#pragma once

#include <cstdint>
#include <string>

#include "daemons/common/ipv4.h"

using Statement = std::string;

enum class PacketEnd : uint8_t { SOURCE, DESTINATION };
enum class Match : uint8_t { IS, IS_NOT };

// By the interface's group: what has come in by one, or is to go out by one.
Statement InGroup(uint32_t group, Match match = Match::IS);
Statement OutGroup(uint32_t group);
Statement InGroupFromTo(uint32_t first, uint32_t last);
Statement OutGroupFromTo(uint32_t first, uint32_t last);

// By the interface's name; by its index in a set, the last also with the index of the way out.
Statement InNamed(const char *name);
Statement OutNamed(const char *name);
Statement InIndexIsIn(const char *set);
Statement InAndOutIndexesAreNotIn(const char *set);

// Of IPv4 or not; for tables that see IPv6 as well, like all below that look at addresses.
Statement IsIpv4(Match match);

// By an address of the packet: in a subnet, in a set, one of this host.
Statement AddressInSubnet(PacketEnd end, const Ipv4Subnet &subnet, Match match);
Statement AddressInSet(PacketEnd end, const char *set, Match match);
Statement AddressIsLocal(PacketEnd end);
// The host has no way to the sender by the interface that the packet came in by.
Statement SenderIsElsewhere();
// Does what the map's verdict for the address says.
Statement VerdictByAddress(PacketEnd end, const char *map);

// By protocol, and the port that it is for.
Statement IsProtocol(uint8_t protocol);
Statement IsForTcpPort(uint16_t port);
Statement IsForUdpPort(uint16_t port);
// By protocol, and the port that it is from; by the type of a message.
Statement IsFromUdpPort(uint16_t port);
Statement IsIcmpv6Type(uint8_t type);
// By its destination: address . protocol . port in a set.
Statement IsForEndpointIn(const char *set);

// By the sender's hardware address: whether the bits of `mask` are those of `value`.
Statement SenderMac(const uint8_t (&mask)[6], const uint8_t (&value)[6], Match match);

// By conntrack's state (bits of NF_CT_STATE_BIT) or status (IPS_): any of the bits.
Statement FlowState(uint32_t bits);
Statement FlowStatus(uint32_t bits);

// Verdicts.
Statement Accept();
Statement Drop();
Statement Jump(const std::string &chain);

// Translations: to the address, or to the address . port, that the map has for protocol . port; to the
// address of the interface that the packet leaves by.
Statement DnatToAddressOf(const char *map);
Statement DnatToEndpointOf(const char *map);
Statement Masquerade();

// Takes the type of service out of an IPv4 packet.
Statement ClearServiceType();

// What is done about flows.
Statement Untracked();
Statement UseObject(uint32_t type, const std::string &name);
// Matches while the packet's sender has no more than that many flows; the set keeps the counts, and a sender
// that it has no room for does not match.
Statement SenderHasNoMoreFlowsThan(uint32_t count, const char *set);
