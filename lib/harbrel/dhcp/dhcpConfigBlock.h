// The marked block of dhcpd.conf: finding it, hashing it, writing it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

// Writes the block at the stream's position, from its start marker to its end marker. *start receives the
// offset of its first byte. Reads every value from the database; messages are logged under `function`.
bool HBLDHCPWriteBlock(const char *function, FILE *stream, uint32_t vnet, long *start);
