// What is known about one network beyond its records and services.
#pragma once

#include <array>
#include <optional>
#include <vector>

#include "apps/zelan/posix/harbrelctl/model/guests.h"
#include "apps/zelan/posix/harbrelctl/model/processes.h"

struct Details {
    std::vector<Lease> leases;
    std::vector<Guest> guests;
    std::array<std::optional<Process>, SERVICE_COUNT> processes;  // that the PID files name
};

// Ports of the switch with somebody behind them; one guest may show several MAC addresses.
size_t PortCount(const Details &details);

Details ReadDetails(const Host &host, const KernelView &kernel, int network);
