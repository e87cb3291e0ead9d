// Daemons that have started before the settings they should run by were made.
#pragma once

#include <array>

#include "apps/zelan/posix/harbrelctl/model/network.h"

// By Service: DHCP and NAT by the age of their file, the bridge by its arguments.
std::array<bool, SERVICE_COUNT> OutdatedServices(const Host &host, int network);
