// Which Ethernet adapters the host has at this moment, asked over rtnetlink.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/hostAdapterChain.h"
#include "lib/misc/owners.h"

// Appends the adapters to the list, in the kernel's order.
bool HBLCreateHostAdapList(HostAdapterChain *list);

// The sequence number of the request, which its answers carry.
constexpr uint32_t HBL_LINK_DUMP_SEQUENCE = 1;

// The reading behind it: the first datagram whole, in a block of its own, without taking it off the socket's
// queue. *length is in bytes, 0 when there was no data.
bool HBLPeekLinkDump(FunctionLog log, int socket, MallocBlock<void> *datagram, size_t *length);

// The parser behind that, a pure function over the bytes of one datagram but for the driver query: walks the
// link messages that answer `processId` or the request's sequence number. A malformed message ends the walk;
// what was found until then counts.
void HBLParseLinkDump(FunctionLog log, const void *datagram, size_t length, uint32_t processId,
                      HostAdapterChain *list);

// Whether the name belongs to a virtual adapter of this system ("zelan...", any case).
bool HBLIsOwnAdapterName(const char *name);
