#include <sys/resource.h>
#include <unistd.h>

#include <fstream>

#include "apps/zelan/posix/harbrelctl/execution/commit.h"
#include "apps/zelan/posix/harbrelctl/execution/remains.h"
#include "apps/zelan/posix/harbrelctl/probes/finding.h"

namespace {

// From the records to the packet.
constexpr Probe WALK[] = {ProbeSettings,  ProbeFiles,    ProbeNode,   ProbeProcesses,  ProbeSwitch,
                          ProbeInterface, ProbeAdapters, ProbeLeases, ProbeForwarding, ProbeFirewall};
constexpr Probe DEEP_WALK[] = {ProbeAsGuest, ProbeForwards};

// Of /proc/meminfo, in kibibytes.
std::optional<uint64_t> AvailableMemory() {
    std::ifstream file("/proc/meminfo");
    for (std::string word; file >> word;) {
        uint64_t size = 0;
        if (word == "MemAvailable:" && file >> size) {
            return size;
        }
    }
    return std::nullopt;
}

// NAT daemons hold a socket for each forwarded port and have as many descriptors as whoever starts them.
std::optional<Finding> ProbeDescriptors(const Patient &patient) {
    constexpr size_t OTHERS = 64;
    constexpr size_t PER_FORWARD = 2;
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    for (int network = 0; network < NETWORK_COUNT; network++) {
        const size_t needed = patient.host.config.networks[network].forwards.size() * PER_FORWARD + OTHERS;
        if (needed > limit.rlim_max) {
            return Finding{
                network, "descriptors-short",
                std::to_string(needed) + " are needed, " + std::to_string(limit.rlim_max) + " allowed",
                "ulimit -Hn " + std::to_string(needed)};
        }
    }
    return std::nullopt;
}

std::optional<Finding> ProbeMemory(const Patient &) {
    constexpr uint64_t ENOUGH = 32768;
    const std::optional<uint64_t> available = AvailableMemory();
    if (!available || *available >= ENOUGH) {
        return std::nullopt;
    }
    return Finding{NO_NETWORK, "memory-short", std::to_string(*available) + " KiB are available", ""};
}

std::optional<Finding> ProbeInterrupted(const Patient &) {
    if (!IsInterrupted()) {
        return std::nullopt;
    }
    return Finding{NO_NETWORK, "change-interrupted", "an editor was killed in the middle of a change",
                   "harbrelctl apply"};
}

// Nobody asks for them any more; and a new network of that number would begin with what stands in them.
std::optional<Finding> ProbeRemains(const Patient &patient) {
    for (int network = 0; network < NETWORK_COUNT; network++) {
        const bool isThere = patient.host.HasAnything(network);
        const std::string path = isThere ? "" : FindRemains(patient.host.paths, network).ours;
        if (!path.empty()) {
            return Finding{network, "files-left", path + " is of a network that is not there",
                           "harbrelctl remove " + NetworkName(network)};
        }
    }
    return std::nullopt;
}

}  // namespace

std::string ApplyCommand(int network) {
    return "harbrelctl apply " + NetworkName(network);
}

std::vector<Finding> ExamineHost(const Patient &patient) {
    std::vector<Finding> findings;
    for (const auto probe : {ProbeInterrupted, ProbeDescriptors, ProbeMemory, ProbeRemains}) {
        const std::optional<Finding> finding = probe(patient);
        if (finding) {
            findings.push_back(*finding);
        }
    }
    return findings;
}

std::optional<Finding> ExamineNetwork(const Patient &patient, int network, bool deep) {
    for (const Probe probe : WALK) {
        std::optional<Finding> finding = probe(patient, network);
        if (finding) {
            return finding;
        }
    }
    for (const Probe probe : DEEP_WALK) {
        std::optional<Finding> finding = deep ? probe(patient, network) : std::nullopt;
        if (finding) {
            return finding;
        }
    }
    return std::nullopt;
}
