// The generator of a network's dhcpd.conf: a marked block of the library's, and the user's text around it.
#pragma once

#include <cstdint>
#include <cstdio>

// Writes the file from the database. The daemon is stopped and the caller holds the database lock. The user's
// text is carried over as long as the block is as the library left it; otherwise the whole file is in the
// backup only.
bool HBLDHCPWriteDHCPCfg(uint32_t vnet);

// Appends the bytes from startPos up to endPos of the file to the stream; an endPos of 0 means the end of the
// file.
bool HBLCopyFileData(long startPos, long endPos, const char *sourcePath, FILE *destStream);
