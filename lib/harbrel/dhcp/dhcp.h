// DHCP of a network: switch, parameters, static mappings, and the generated dhcpd.conf.
#pragma once

#include <cstdint>

// No lock: the exported setter and vnet removal hold it.
bool HBLSetVnetUseDHCP(uint32_t vnet, bool useDHCP, bool cleanup);
// Makes dhcpd.conf follow the database, or removes it when DHCP is off.
bool HBLDHCPUpdateFromConfig(uint32_t vnet);
