#include "apps/zelan/posix/harbrelctl/execution/outdated.h"

#include <sys/stat.h>

#include <set>

#include "apps/zelan/posix/harbrelctl/model/processes.h"

namespace {

bool IsOlderThan(const Process &process, const std::string &path) {
    constexpr double NANOSECONDS = 1e9;
    constexpr double CLOCK_STEP = 0.05;  // of the start time that the kernel tells
    struct stat status;
    if (stat(path.c_str(), &status) != 0) {
        return false;
    }
    const double changed = static_cast<double>(status.st_mtim.tv_sec) +
                           static_cast<double>(status.st_mtim.tv_nsec) / NANOSECONDS;
    return process.started + CLOCK_STEP < changed;
}

std::set<std::string> AdapterArguments(const Process &process) {
    std::set<std::string> words;
    for (const std::string &argument : process.arguments) {
        if (argument.starts_with("-e") || argument.starts_with("-i")) {
            words.insert(argument);
        }
    }
    return words;
}

// The default network is told what to leave out, any other what to take.
std::set<std::string> WantedArguments(const Config &config, int network) {
    std::set<std::string> words;
    for (const auto &[adapter, mapped] : config.mappings) {
        if (network == config.defaultBridge ? mapped != network : mapped == network) {
            words.insert((network == config.defaultBridge ? "-e" : "-i") + adapter);
        }
    }
    return words;
}

}  // namespace

std::array<bool, SERVICE_COUNT> OutdatedServices(const Host &host, int network) {
    std::array<bool, SERVICE_COUNT> outdated = {};
    for (int service = 0; service < SERVICE_COUNT; service++) {
        const auto pid = PidIn(host.PidFile(network, static_cast<Service>(service)));
        const auto process = pid ? ProcessOf(*pid) : std::nullopt;
        if (!process) {
            continue;
        }
        if (service == SERVICE_DHCP) {
            outdated[service] = IsOlderThan(*process, host.paths.DhcpConf(network));
        } else if (service == SERVICE_NAT) {
            outdated[service] = IsOlderThan(*process, host.paths.NatConf(network));
        } else if (service == SERVICE_BRIDGE) {
            outdated[service] = AdapterArguments(*process) != WantedArguments(host.config, network);
        }
    }
    return outdated;
}
