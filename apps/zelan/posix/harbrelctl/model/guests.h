// Who is plugged into a network's switch.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "apps/zelan/posix/harbrelctl/model/leases.h"
#include "apps/zelan/posix/harbrelctl/model/links.h"

struct Guest {
    std::string port;                           // the interface on the host
    std::string mac;                            // learned behind the port; empty before the first frame
    std::optional<uint32_t> address;            // of its lease or reservation
    std::string name;                           // from the lease
    uint64_t receivedBytes = 0, sentBytes = 0;  // as the guest sees it
    uint64_t receivedPackets = 0, sentPackets = 0;
};

// One for each MAC address behind each port that the daemons have not made themselves; pure.
std::vector<Guest> GuestsOf(const KernelView &kernel, int network, std::span<const Lease> leases,
                            std::span<const Reservation> reservations);
