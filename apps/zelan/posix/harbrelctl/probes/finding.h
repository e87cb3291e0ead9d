// What the doctor finds.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "apps/zelan/posix/harbrelctl/execution/rehearsal.h"
#include "apps/zelan/posix/harbrelctl/model/details.h"
#include "apps/zelan/posix/harbrelctl/model/surroundings.h"
#include "apps/zelan/posix/harbrelctl/probes/firewall.h"

struct Finding {
    int network = NO_NETWORK;  // none: of the host
    std::string code;          // stable, for programs
    std::string evidence;
    std::string command;  // that mends it; empty when none of ours does
    bool operator==(const Finding &) const = default;
};

// All that is looked at, read once.
struct Patient {
    const Host &host;
    const KernelView &kernel;
    const Surroundings &surroundings;
    const Rehearsal &rehearsal;  // of the files as they should be
    const std::vector<DropRule> &drops;
    const std::vector<Details> &details;  // by number of the network; empty ones for those not asked for
};

// The host's own faults.
std::vector<Finding> ExamineHost(const Patient &patient);

// Walks from the records of a network towards the packet and stops at the first broken link. With `deep` real
// packets are sent, through a port that lasts as long as the test.
std::optional<Finding> ExamineNetwork(const Patient &patient, int network, bool deep);

// One link of the walk; nothing when it holds.
using Probe = std::optional<Finding> (*)(const Patient &patient, int network);

std::optional<Finding> ProbeSettings(const Patient &patient, int network);
std::optional<Finding> ProbeFiles(const Patient &patient, int network);
std::optional<Finding> ProbeNode(const Patient &patient, int network);
std::optional<Finding> ProbeProcesses(const Patient &patient, int network);
std::optional<Finding> ProbeSwitch(const Patient &patient, int network);
std::optional<Finding> ProbeInterface(const Patient &patient, int network);
std::optional<Finding> ProbeAdapters(const Patient &patient, int network);
std::optional<Finding> ProbeLeases(const Patient &patient, int network);
std::optional<Finding> ProbeForwarding(const Patient &patient, int network);
std::optional<Finding> ProbeFirewall(const Patient &patient, int network);
// These send packets.
std::optional<Finding> ProbeAsGuest(const Patient &patient, int network);
std::optional<Finding> ProbeForwards(const Patient &patient, int network);

std::string ApplyCommand(int network);
