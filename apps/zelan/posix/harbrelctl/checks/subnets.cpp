#include "apps/zelan/posix/harbrelctl/checks/checks.h"

namespace {

constexpr unsigned LONGEST_PREFIX = 29;  // the library wants at least 8 addresses
constexpr unsigned SHORTEST_PREFIX = 8;

}  // namespace

void CheckSubnet(const NetworkConfig &settings, int network, Problems *problems) {
    const std::optional<Subnet> subnet = settings.NetworkSubnet();
    if (!subnet && (settings.Has(FIELD_SUBNET) || settings.Has(FIELD_MASK))) {
        problems->push_back(
            {"subnet-malformed", PROBLEM_VALUE, network, "address and mask of the subnet do not make one"});
        return;
    }
    if (subnet && (PrefixOf(subnet->mask) > LONGEST_PREFIX || PrefixOf(subnet->mask) < SHORTEST_PREFIX)) {
        problems->push_back({"subnet-size", PROBLEM_VALUE, network,
                             "the subnet " + SubnetText(*subnet) + " is none of /8 to /29"});
    }
    for (const Field feature : {FIELD_DHCP, FIELD_NAT, FIELD_ADAPTER}) {
        if (settings.IsOn(feature) && !subnet) {
            problems->push_back(
                {"subnet-missing", PROBLEM_VALUE, network,
                 std::string(FIELDS[feature].name) + " needs a subnet: subnet=ADDRESS/PREFIX"});
        }
    }
}

void CheckOverlaps(const Config &config, int network, const Surroundings &surroundings, Problems *problems) {
    const std::optional<Subnet> subnet = config.networks[network].NetworkSubnet();
    if (!subnet) {
        return;
    }
    for (int other = 0; other < NETWORK_COUNT; other++) {
        const std::optional<Subnet> taken = config.networks[other].NetworkSubnet();
        if (other != network && taken && Overlap(*subnet, *taken)) {
            problems->push_back({"subnet-overlaps-network", PROBLEM_CONFLICT, network,
                                 "the subnet " + SubnetText(*subnet) + " overlaps " + SubnetText(*taken) +
                                     " of " + NetworkName(other)});
        }
    }
    for (const ForeignSubnet &foreign : surroundings.subnets) {
        if (Overlap(*subnet, foreign.subnet)) {
            problems->push_back({"subnet-overlaps-host", PROBLEM_CONFLICT, network,
                                 "the subnet " + SubnetText(*subnet) + " overlaps " +
                                     SubnetText(foreign.subnet) + " of " + foreign.owner});
        }
    }
}
