#include "apps/zelan/posix/harbrelctl/probes/finding.h"

std::optional<Finding> ProbeFirewall(const Patient &patient, int network) {
    const NetworkConfig &config = patient.host.config.networks[network];
    const std::optional<Subnet> subnet = config.NetworkSubnet();
    if (!config.IsOn(FIELD_NAT) || !subnet) {
        return std::nullopt;  // nothing of the others is forwarded
    }
    std::vector<std::string> interfaces = {"zelan-up" + std::to_string(network)};
    for (const HostAdapter &adapter : patient.host.adapters) {
        interfaces.push_back(adapter.name);
    }
    for (const DropRule &rule : patient.drops) {
        if (Meets(rule, interfaces, *subnet)) {
            return Finding{network, "firewall-drops", rule.place + ": " + rule.rule, "nft list ruleset"};
        }
    }
    return std::nullopt;
}
