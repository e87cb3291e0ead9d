#include <algorithm>
#include <initializer_list>

#include "apps/zelan/posix/harbrelctl/plan/plan.h"

namespace {

constexpr Field SWITCHES[SERVICE_COUNT] = {FIELD_COUNT, FIELD_DHCP, FIELD_NAT, FIELD_ADAPTER};
// Stopping and starting go in the order of the start command: the bridge first, the host's interface last.
constexpr Service ORDER[] = {SERVICE_BRIDGE, SERVICE_DHCP, SERVICE_NAT, SERVICE_ADAPTER};

bool IsWanted(const Config &after, int network, Service service) {
    return service == SERVICE_BRIDGE ? IsBridged(after, network)
                                     : after.networks[network].IsOn(SWITCHES[service]);
}

// Whether the host's interface is as the settings say, as far as it is up.
bool AdapterFits(const Host &host, const KernelView &kernel, const Config &after, int network) {
    const NetworkConfig &config = after.networks[network];
    const auto name = EffectiveValue(network, config, FIELD_ADAPTER_NAME);
    if (name != EffectiveValue(network, host.config.networks[network], FIELD_ADAPTER_NAME)) {
        return false;
    }
    const auto wanted = EffectiveAddress(network, config, FIELD_ADAPTER_ADDRESS);
    const std::optional<Subnet> subnet = config.NetworkSubnet();
    const Link *const link = kernel.Find(*name);
    return link == nullptr || !subnet ||
           std::any_of(kernel.addresses.begin(), kernel.addresses.end(), [&](const LinkAddress &address) {
               return address.link == link->index && address.address == wanted && address.subnet == *subnet;
           });
}

bool IsStale(const Host &host, const KernelView &kernel, const Config &after, const NetworkAim &aim,
             Service service) {
    switch (service) {
        case SERVICE_DHCP:
            return aim.stale.dhcp;
        case SERVICE_NAT:
            return aim.stale.nat;
        case SERVICE_ADAPTER:
            return !AdapterFits(host, kernel, after, aim.network);
        default:
            return false;  // the library restarts bridges with the mappings
    }
}

struct Turn {
    Service service;
    bool stop, write, start;
};

Turn TurnOf(const Host &host, const KernelView &kernel, const Config &after, const NetworkAim &aim,
            Service service) {
    const NetworkState &now = host.networks[aim.network];
    const bool running = now.services[service].running;
    const bool wanted = IsWanted(after, aim.network, service) && aim.aim != AIM_STOP;
    const bool stale = IsStale(host, kernel, after, aim, service);
    const bool active = aim.aim == AIM_RUN || aim.aim == AIM_RESTART || now.IsRunning();
    Turn turn = {service, false, false, false};
    turn.stop = running && (!wanted || stale || aim.outdated[service] || aim.aim == AIM_RESTART);
    turn.write = stale && (service == SERVICE_DHCP || service == SERVICE_NAT);
    turn.start = wanted && (running ? turn.stop : active);
    return turn;
}

void AddSteps(const Host &host, const KernelView &kernel, const Config &after, const NetworkAim &aim,
              std::vector<Step> *steps) {
    std::vector<Turn> turns;
    for (const Service service : ORDER) {
        turns.push_back(TurnOf(host, kernel, after, aim, service));
    }
    const auto add = [&](StepKind kind, bool Turn::*flag) {
        for (const Turn &turn : turns) {
            if (turn.*flag) {
                steps->push_back({kind, aim.network, turn.service});
            }
        }
    };
    add(STEP_STOP, &Turn::stop);
    add(STEP_WRITE, &Turn::write);
    add(STEP_START, &Turn::start);
    // A start makes the node by itself.
    const bool starts = std::any_of(turns.begin(), turns.end(), [](const Turn &turn) { return turn.start; });
    if (aim.nodeMissing && !starts && aim.aim != AIM_STOP && host.networks[aim.network].IsRunning()) {
        steps->push_back({STEP_NODE, aim.network, SERVICE_BRIDGE});
    }
}

}  // namespace

std::vector<Step> MakeSteps(const Host &host, const KernelView &kernel, const Config &after,
                            const std::vector<NetworkAim> &aims) {
    std::vector<Step> steps;
    for (const NetworkAim &aim : aims) {
        if (aim.aim != AIM_FILES) {
            AddSteps(host, kernel, after, aim, &steps);
        }
    }
    return steps;
}

std::vector<Step> RemovalSteps(const Host &host, int network) {
    std::vector<Step> steps;
    for (const Service service : ORDER) {
        if (host.networks[network].services[service].running) {
            steps.push_back({STEP_STOP, network, service});
        }
    }
    steps.push_back({STEP_REMOVE, network, SERVICE_BRIDGE});
    return steps;
}

std::string StepText(const Step &step) {
    const std::string on =
        std::string(" ") + SERVICES[step.service].name + " on " + NetworkName(step.network);
    switch (step.kind) {
        case STEP_STOP:
            return "stop" + on;
        case STEP_WRITE:
            return "write the file of" + on;
        case STEP_START:
            return "start" + on;
        case STEP_REMOVE:
            return "remove " + NetworkName(step.network);
        case STEP_NODE:
            return "make the device node of " + NetworkName(step.network);
    }
    return "";
}
