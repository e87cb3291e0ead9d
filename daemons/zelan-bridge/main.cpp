// zelan-bridge -s W -d PIDFILE -n N [-eNAME]...
// zelan-bridge -s W -d PIDFILE -n N -iNAME...
//
// Bridges network N to the host's adapters: to every Ethernet adapter but those of -e, or to those of -i
// alone. Adapters may come and go. The ports on the switch are TAPs, which the kernel removes when this
// process ends. It keeps the cables; no byte of a guest's comes to it.
#include <linux/capability.h>

#include <cstdlib>
#include <vector>

#include "daemons/common/complain.h"
#include "daemons/common/daemon.h"
#include "daemons/common/options.h"
#include "daemons/common/switch.h"
#include "daemons/confinement/confinement.h"
#include "daemons/zelan-bridge/cableSet.h"

namespace {

#ifndef CAP_BPF
#define CAP_BPF 39
#endif

// The last three are for the copying process, should there be one: it is another user's, whom the kernel ends
// in the name of the keeper when that one dies.
constexpr int CAPABILITIES[] = {CAP_NET_ADMIN, CAP_NET_RAW, CAP_BPF, CAP_SETUID, CAP_SETGID, CAP_KILL};

struct Arguments {
    DaemonContract contract;
    int network = -1;
    AdapterRule rule;
};

bool ReadArguments(char **argv, Arguments *arguments) {
    const char *network = nullptr;
    std::vector<const char *> excluded;
    std::vector<const char *> included;
    const OptionRule rules[] = {{"-s", &arguments->contract.statusText},
                                {"-d", &arguments->contract.pidFile},
                                {"-n", &network},
                                {"-e", nullptr, &excluded},
                                {"-i", nullptr, &included}};
    std::vector<const char *> operands;
    if (!Options_Read(argv, rules, &operands)) {
        return false;
    }
    if (!operands.empty() || (!excluded.empty() && !included.empty())) {
        Complain("usage: -s DESCRIPTOR -d PIDFILE -n NETWORK [-eADAPTER]... or [-iADAPTER]...");
        return false;
    }
    if (!Options_Number(network, SWITCH_MAX_NETWORK, &arguments->network)) {
        Complain("option -n needs a network's number from 0 to %d, not %s", SWITCH_MAX_NETWORK, network);
        return false;
    }
    arguments->rule.takesAll = included.empty();
    const std::vector<const char *> &names = included.empty() ? excluded : included;
    arguments->rule.names.assign(names.begin(), names.end());
    return Daemon_TakeContract(&arguments->contract, CAPABILITIES);
}

}  // namespace

int main(int, char **argv) {
    Arguments arguments;
    if (!ReadArguments(argv, &arguments) ||
        !Daemon_Claim(&arguments.contract, Service::BRIDGE, arguments.network)) {
        return EXIT_FAILURE;
    }
    CleanUp cleanUp;
    CableSet cables(arguments.network, arguments.rule);
    if (!cables.Begin()) {
        Daemon_GiveUp(&arguments.contract, cleanUp);
    }
    cleanUp.filters = cables.MayHaveFilters() ? arguments.network : -1;
    Daemon_Detach(&arguments.contract, cleanUp);
    // Adapters come later, too.
    if (!Confine({.capabilities = CAPABILITIES, .ownUser = false})) {
        return EXIT_FAILURE;
    }
    cables.Run();
}
