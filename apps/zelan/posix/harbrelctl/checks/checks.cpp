#include "apps/zelan/posix/harbrelctl/checks/checks.h"

#include <algorithm>

Problems CheckNetwork(const Config &config, int network, const Surroundings &surroundings) {
    Problems problems;
    const NetworkConfig &settings = config.networks[network];
    CheckSubnet(settings, network, &problems);
    CheckOverlaps(config, network, surroundings, &problems);
    CheckAddresses(settings, network, &problems);
    CheckPlainValues(settings, network, &problems);
    CheckReservations(settings, network, &problems);
    CheckForwards(config, network, surroundings, &problems);
    return problems;
}

Problems NewProblems(const Config &before, const Config &after, const std::vector<int> &networks,
                     const Surroundings &surroundings) {
    Problems fresh;
    for (const int network : networks) {
        const Problems old = CheckNetwork(before, network, surroundings);
        for (Problem &problem : CheckNetwork(after, network, surroundings)) {
            if (std::find(old.begin(), old.end(), problem) == old.end()) {
                fresh.push_back(std::move(problem));
            }
        }
    }
    return fresh;
}
