#include "apps/zelan/posix/harbrelctl/checks/checks.h"

namespace {

std::string PortText(const Forward &forward) {
    return std::string(forward.tcp ? "tcp" : "udp") + " port " + std::to_string(forward.hostPort);
}

bool SamePort(const Forward &a, const Forward &b) {
    return a.tcp == b.tcp && a.hostPort == b.hostPort;
}

void CheckTarget(const NetworkConfig &settings, int network, const Forward &forward, Problems *problems) {
    const std::optional<Subnet> subnet = settings.NetworkSubnet();
    if (!subnet || !subnet->Contains(forward.guest) || forward.guest == subnet->address ||
        forward.guest == subnet->Last()) {
        problems->push_back({"forward-outside-subnet", PROBLEM_VALUE, network,
                             PortText(forward) + " leads to " + AddressText(forward.guest) +
                                 ", which is no guest of the subnet" +
                                 (subnet ? " " + SubnetText(*subnet) : "")});
    }
}

void CheckPort(const Config &config, int network, const Forward &forward, const Surroundings &surroundings,
               Problems *problems) {
    for (int other = 0; other < NETWORK_COUNT; other++) {
        for (const Forward &taken : config.networks[other].forwards) {
            if (other != network && SamePort(taken, forward)) {
                problems->push_back({"port-of-network", PROBLEM_CONFLICT, network,
                                     PortText(forward) + " is forwarded by " + NetworkName(other) + " to " +
                                         AddressText(taken.guest) + ":" + std::to_string(taken.guestPort)});
            }
        }
    }
    for (const UsedPort &used : surroundings.ports) {
        if (used.tcp == forward.tcp && used.port == forward.hostPort) {
            problems->push_back({"port-of-host", PROBLEM_CONFLICT, network,
                                 PortText(forward) + " of the host is used by " + used.owner});
            return;
        }
    }
}

}  // namespace

void CheckForwards(const Config &config, int network, const Surroundings &surroundings, Problems *problems) {
    constexpr size_t LONGEST_NOTE = 127;
    const NetworkConfig &settings = config.networks[network];
    for (const Forward &forward : settings.forwards) {
        CheckTarget(settings, network, forward, problems);
        CheckPort(config, network, forward, surroundings, problems);
        if (forward.note.size() > LONGEST_NOTE || forward.note.find_first_of("\r\n") != std::string::npos) {
            problems->push_back({"note-malformed", PROBLEM_VALUE, network,
                                 "the note of " + PortText(forward) + " is no line of at most 127 bytes"});
        }
    }
}
