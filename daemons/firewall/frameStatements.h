// The statements about frames on switches, for tables of bridges: what statements.h has for packets.
#pragma once

#include "daemons/firewall/statements.h"

// By the name of the bridge that the frame came in on, in a set. Not every kernel can tell.
Statement InBridgeIsIn(const char *set);

// By the protocol of the frame's content (ETH_P_): behind a tag, if it has one.
Statement FrameIsOf(uint16_t protocol);
// Of a frame with a tag: the tag names no VLAN. Receivers take such a tag off, and another one behind it.
Statement TagIsOfNoVlan();
// Of a frame of IEEE 802.2: its content stands behind a second header that names one of Ethernet's protocols.
Statement IsEncapsulatedEthernet();

// Of a datagram for a DHCP server: it is no request of a client with an Ethernet address.
Statement IsNoEthernetClients();

// Matches while no more have come in by the port of the bridge: `burst` at once, and `count` in each `unit`
// of seconds. The set, which needs time-outs, keeps the ports.
Statement PortSendsNoMoreThan(uint64_t count, uint64_t unit, uint32_t burst, const char *set);

// The DHCP client, told by the hardware address in its request and by the port of the bridge: in a set of
// port . address; and puts it there, or renews its time.
Statement ClientIsIn(const char *set);
Statement RememberClient(const char *set);

// Of an IPv4 packet: its header has options.
Statement HasIpv4Options();

// Writes the lowest byte of the port's index into the type of service of an IPv4 packet without options.
Statement MarkWithPort();
