#include "apps/zelan/posix/harbrelctl/model/details.h"

#include <set>

size_t PortCount(const Details &details) {
    std::set<std::string> ports;
    for (const Guest &guest : details.guests) {
        ports.insert(guest.port);
    }
    return ports.size();
}

Details ReadDetails(const Host &host, const KernelView &kernel, int network) {
    Details details;
    const NetworkConfig &config = host.config.networks[network];
    details.leases = ReadLeases(host, network);
    details.guests = GuestsOf(kernel, network, details.leases, config.reservations);
    for (int service = 0; service < SERVICE_COUNT; service++) {
        const auto pid = PidIn(host.PidFile(network, static_cast<Service>(service)));
        details.processes[service] = pid ? ProcessOf(*pid) : std::nullopt;
    }
    return details;
}
