#include "apps/zelan/posix/harbrelctl/model/guests.h"

#include <algorithm>
#include <utility>

namespace {

void Identify(std::span<const Lease> leases, std::span<const Reservation> reservations, Guest *guest) {
    for (const Lease &lease : leases) {
        if (lease.mac == guest->mac) {
            guest->address = lease.address;
            guest->name = lease.name;
            return;
        }
    }
    for (const Reservation &tie : reservations) {
        if (tie.mac == guest->mac) {
            guest->address = tie.address;
            return;
        }
    }
}

Guest OnPort(const Link &port) {
    Guest guest;
    guest.port = port.name;
    guest.receivedBytes = port.sentBytes;
    guest.receivedPackets = port.sentPackets;
    guest.sentBytes = port.receivedBytes;
    guest.sentPackets = port.receivedPackets;
    return guest;
}

}  // namespace

std::vector<Guest> GuestsOf(const KernelView &kernel, int network, std::span<const Lease> leases,
                            std::span<const Reservation> reservations) {
    std::vector<Guest> guests;
    const Link *const bridge = kernel.Find(SwitchName(network));
    if (bridge == nullptr) {
        return guests;
    }
    for (const Link &port : kernel.links) {
        if (port.master != bridge->index || IsOurs(port.group)) {
            continue;
        }
        const size_t before = guests.size();
        for (const Learned &learned : kernel.learned) {
            if (learned.port == port.index) {
                Guest guest = OnPort(port);
                guest.mac = learned.mac;
                Identify(leases, reservations, &guest);
                guests.push_back(guest);
            }
        }
        if (guests.size() == before) {
            guests.push_back(OnPort(port));
        }
    }
    std::ranges::sort(guests, {}, [](const Guest &guest) { return std::pair(guest.port, guest.mac); });
    return guests;
}
