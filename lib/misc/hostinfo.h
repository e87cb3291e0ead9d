// What tells this host from others.
#pragma once

#include <cstdint>
#include <string_view>

// Both values are computed once per process; what cannot be had is 0, with a warning in the general log.
//   hostNameHash  Hostinfo_HashHostName of the host name
//   hardwareID    the MAC address of the first of eth0 to eth7 that has one, its first byte lowest, the upper
//                 two bytes zero; 0 without a warning when none of the eight exists
void Hostinfo_MachineID(uint32_t *hostNameHash, uint64_t *hardwareID);

// Starts at 5381; times 33 plus the next byte, taken as unsigned.
uint32_t Hostinfo_HashHostName(std::string_view hostName);
