// Finding a private subnet that nobody else uses, and assigning it to a vnet.
#pragma once

#include <cstdint>

// True when nothing answered, so that the subnet is free. Reads the cache and runs orvane-ping; touches no
// table.
bool HBLPingAndCheckSubnet(const char *subnet, bool broadcast, uint32_t timeout, uint32_t interval);
// Both buffers hold at least 16 bytes and are set only on success.
bool HBLSubnetProbe(char *subnet, char *mask);
bool HBLAssignUnusedSubnetAddressToVNet(uint32_t vnet);
bool HBLGetHostOnlySubnet(uint32_t vnet, uint32_t *address);
void HBLMarkSubnetProbed(const char *subnet, int flag);
bool HBLRemoveVnetSubnetAddr(uint32_t vnet);
bool HBLRemoveVnetSubnet(uint32_t vnet);
