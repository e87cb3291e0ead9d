// The marked block of dhcpd.conf: finding it, hashing it, writing it.
#pragma once

#include <cstdint>
#include <cstdio>

#include "lib/harbrel/base/hblLog.h"

// Writes the block at the stream's position, from its start marker to its end marker. *start receives the
// offset of its first byte. Reads every value from the database.
bool HBLDHCPWriteBlock(FunctionLog log, FILE *stream, uint32_t vnet, long *start);

// Offsets of the block's first byte and of the byte behind its end marker, each -1 if there is none.
void HBLLocateZelanDHCPBlock(FILE *stream, long *posStart, long *posEnd);

// Upper-case hexadecimal SHA-1 of the bytes from posStart up to posEnd, as a new text that the caller frees,
// or null. The stream's position is left as it was.
char *HBLCalculateHashStrForBlock(FILE *stream, long posStart, long posEnd);
