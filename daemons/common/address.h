// IPv4 addresses and routes of the current network namespace.
#pragma once

#include <functional>

#include "daemons/common/ipv4.h"
#include "daemons/common/rtnetlink.h"

// Gives an interface an address. An errno value, like all below.
int Address_Add(RtSocket *socket, int link, Ipv4 address, int prefix);

// Shows the index of the interface of every address.
int Address_ForEach(RtSocket *socket, const std::function<void(int)> &visit);

// The index of the interface that an RTM_NEWADDR message tells of; 0 for any other message.
int Address_LinkOfNew(const nlmsghdr *message);

// Sends everything that no other route leads elsewhere to this neighbour.
int Route_AddDefault(RtSocket *socket, Ipv4 gateway);

// Whether nothing but the default route covers the address, so that the host knows nobody by it.
bool Route_IsUnknown(RtSocket *socket, Ipv4 address);
