// Static DHCP mappings of a network.
#pragma once

#include <cstddef>
#include <cstdint>

// `mac` is in canonical form. A null ip removes the mapping, which fails when there is none. The caller holds
// the lock.
bool HBLDHCPSetIPToMAC(uint32_t vnet, const char *ip, const char *mac);
bool HBLDHCPGetIPToMAC(uint32_t vnet, char *ipBuffer, size_t ipBufferLength, const char *mac);
