// NAT of a network: switch, parameters, port forwards, and the generated nat.conf.
#pragma once

#include <cstdint>

// No lock: the exported setter and vnet removal hold it.
bool HBLSetVnetUseNAT(uint32_t vnet, bool useNAT, bool cleanup);
// Makes nat.conf follow the database, or removes it when NAT is off.
bool HBLNATUpdateFromConfig(uint32_t vnet);
