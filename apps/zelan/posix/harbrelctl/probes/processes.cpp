// The daemons: alive, and the right ones.
#include <algorithm>
#include <filesystem>

#include "apps/zelan/posix/harbrelctl/probes/finding.h"

namespace {

std::string BaseName(const std::string &path) {
    constexpr std::string_view REPLACED = " (deleted)";  // by an upgrade
    const std::string name = std::filesystem::path(path).filename().string();
    return name.ends_with(REPLACED) ? name.substr(0, name.size() - REPLACED.size()) : name;
}

bool IsProgramOf(Service service, const std::string &program) {
    const std::string name = BaseName(program);
    // Behind zelan-dhcpd serves one of two servers.
    return name == SERVICES[service].program ||
           (service == SERVICE_DHCP && (name == "dnsmasq" || name == "dhcpd"));
}

// Whether an argument has the word in it, with no digit behind.
bool Names(const std::vector<std::string> &arguments, const std::string &word) {
    return std::any_of(arguments.begin(), arguments.end(), [&word](const std::string &argument) {
        const size_t start = argument.find(word);
        return start != std::string::npos && isdigit(argument[start + word.size()]) == 0;
    });
}

// A server that reads its configuration from a pipe is known by the leases that it holds open.
bool HoldsLeases(const Host &host, int network, const Process &process) {
    constexpr int MOST_DESCRIPTORS = 16;
    const std::string folder = "/proc/" + std::to_string(process.pid) + "/fd/";
    for (int descriptor = 0; descriptor < MOST_DESCRIPTORS; descriptor++) {
        std::error_code ignored;
        if (std::filesystem::equivalent(folder + std::to_string(descriptor), host.paths.Leases(network),
                                        ignored)) {
            return true;
        }
    }
    return false;
}

bool IsForNetwork(const Host &host, int network, Service service, const Process &process) {
    return Names(process.arguments, NetworkName(network)) ||
           Names(process.arguments, host.PidFile(network, service)) ||
           (service == SERVICE_DHCP && HoldsLeases(host, network, process));
}

std::optional<Finding> ProbeProcess(const Patient &patient, int network, Service service) {
    const std::string name = SERVICES[service].name;
    const std::string pidFile = patient.host.PidFile(network, service);
    const std::optional<Process> &process = patient.details[static_cast<size_t>(network)].processes[service];
    const ServiceState &state = patient.host.networks[network].services[service];
    if (!state.configured) {
        return !state.running
                   ? std::nullopt
                   : std::optional(Finding{network, "service-unwanted", name + " runs and is not configured",
                                           ApplyCommand(network)});
    }
    if (!process) {
        const bool garbled = std::filesystem::exists(pidFile) && !PidIn(pidFile);
        return garbled ? Finding{network, "pid-file-garbled", pidFile + " has no process number",
                                 "rm " + pidFile + " && " + ApplyCommand(network)}
                       : Finding{network, "service-stopped", name + " does not run", ApplyCommand(network)};
    }
    // The library would kill whoever has the number, so the file goes first.
    if (!IsProgramOf(service, process->program) || !IsForNetwork(patient.host, network, service, *process)) {
        return Finding{network, "process-foreign",
                       "process " + std::to_string(process->pid) + " of " + pidFile + " is " +
                           (process->program.empty() ? "another program" : process->program),
                       "rm " + pidFile + " && " + ApplyCommand(network)};
    }
    return std::nullopt;
}

}  // namespace

std::optional<Finding> ProbeProcesses(const Patient &patient, int network) {
    for (int service = 0; service < SERVICE_COUNT; service++) {
        std::optional<Finding> finding = ProbeProcess(patient, network, static_cast<Service>(service));
        // The adapter is told by its interface when that is up.
        if (finding) {
            return finding;
        }
    }
    return std::nullopt;
}
