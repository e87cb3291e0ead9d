// set, unset, add, remove.
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "apps/zelan/posix/harbrelctl/commands/change.h"
#include "apps/zelan/posix/harbrelctl/commands/commands.h"
#include "apps/zelan/posix/harbrelctl/commands/progress.h"
#include "apps/zelan/posix/harbrelctl/execution/freeSubnet.h"
#include "apps/zelan/posix/harbrelctl/execution/remains.h"
#include "apps/zelan/posix/harbrelctl/model/keys.h"
#include "apps/zelan/posix/harbrelctl/output/report.h"

namespace {

bool IsUsed(const Host &host, int network) {
    return host.HasAnything(network);
}

// Of one that is gone, when it could not be taken out as a whole.
bool HasLeftSomething(const Host &host, int network) {
    return access(host.paths.Node(network).c_str(), F_OK) == 0 ||
           !FindRemains(host.paths, network).ours.empty();
}

// zelan0 is left to bridging.
std::optional<int> FirstFree(const Host &host) {
    for (int network = 1; network < NETWORK_COUNT; network++) {
        if (!IsUsed(host, network)) {
            return network;
        }
    }
    Complain("all 256 networks are in use");
    return std::nullopt;
}

bool KindIsClear(const Arguments &arguments) {
    const int kinds =
        (arguments.nat ? 1 : 0) + (arguments.hostOnly ? 1 : 0) + (arguments.bridge.empty() ? 0 : 1);
    if (kinds != 1) {
        Complain("exactly one of --nat, --host-only and --bridge ADAPTER says what the network is to be");
        return false;
    }
    if (!arguments.bridge.empty() && (!arguments.subnet.empty() || arguments.noDhcp)) {
        Complain("a bridged network has no subnet and no DHCP of its own");
        return false;
    }
    return true;
}

std::optional<Subnet> SubnetFor(const Arguments &arguments, const Editor &editor, int *status) {
    if (!arguments.subnet.empty()) {
        const std::optional<Subnet> subnet = ParseSubnet(arguments.subnet);
        if (!subnet) {
            Complain("subnet \"%s\" is not allowed: %s", arguments.subnet.c_str(),
                     FindKey("subnet")->allowed);
            *status = STATUS_USAGE;
        }
        return subnet;
    }
    Progress progress("looking for a subnet that nothing uses");
    const auto subnet =
        FindFreeSubnet(editor.context.host.config, editor.surroundings, [&] { progress.Tick(); });
    if (!subnet) {
        Complain("no free subnet is found; --subnet ADDRESS/PREFIX names one");
        *status = STATUS_CONFLICT;
    }
    return subnet;
}

int WishForBridge(const Arguments &arguments, const Editor &editor, int network, Wish *wish) {
    if (arguments.bridge.size() > 1 && network != editor.context.host.config.defaultBridge) {
        Complain("%s takes one adapter: only the default bridge network takes several",
                 NetworkName(network).c_str());
        return STATUS_USAGE;
    }
    for (const std::string &adapter : arguments.bridge) {
        const auto &known = editor.context.host.adapters;
        if (std::none_of(known.begin(), known.end(),
                         [&](const HostAdapter &one) { return one.name == adapter; })) {
            Complain("the host has no adapter \"%s\"; adapter list names them", adapter.c_str());
            return STATUS_USAGE;
        }
        wish->after.mappings[adapter] = network;
    }
    return STATUS_DONE;
}

int WishForSubnet(const Arguments &arguments, const Editor &editor, int network, Wish *wish) {
    int status = STATUS_DONE;
    const std::optional<Subnet> subnet = SubnetFor(arguments, editor, &status);
    if (!subnet) {
        return status;
    }
    NetworkConfig *const config = &wish->after.networks[network];
    config->stored[FIELD_SUBNET] = AddressText(subnet->address);
    config->stored[FIELD_MASK] = AddressText(subnet->mask);
    config->stored[FIELD_ADAPTER] = "yes";
    if (arguments.nat) {
        config->stored[FIELD_NAT] = "yes";
    }
    if (!arguments.noDhcp) {
        config->stored[FIELD_DHCP] = "yes";
    }
    return STATUS_DONE;
}

int WishToAdd(const Arguments &arguments, const Editor &editor, Wish *wish) {
    const std::vector<int> &named = wish->networks;
    const Host &host = editor.context.host;
    const std::optional<int> network = named.empty() ? FirstFree(host) : named.front();
    if (!network) {
        return STATUS_CONFLICT;
    }
    const bool joinsDefault = !arguments.bridge.empty() && *network == host.config.defaultBridge;
    if (IsUsed(host, *network) && !joinsDefault) {
        Complain("%s is configured already: set changes it, remove makes room",
                 NetworkName(*network).c_str());
        return STATUS_CONFLICT;
    }
    wish->networks = {*network};
    wish->aim = AIM_RUN;
    return arguments.bridge.empty() ? WishForSubnet(arguments, editor, *network, wish)
                                    : WishForBridge(arguments, editor, *network, wish);
}

}  // namespace

int RunSet(const Arguments &arguments) {
    return Change(arguments, [&](const Editor &, Wish *wish) {
        for (const std::string &assignment : arguments.words) {
            const std::string error = Assign(assignment, &wish->after.networks[wish->networks.front()]);
            if (!error.empty()) {
                Complain("%s", error.c_str());
                return STATUS_USAGE;
            }
        }
        return STATUS_DONE;
    });
}

int RunUnset(const Arguments &arguments) {
    return Change(arguments, [&](const Editor &, Wish *wish) {
        for (const std::string &name : arguments.words) {
            const KeyRow *const key = FindKey(name);
            if (key == nullptr) {
                NetworkConfig unused;
                Complain("%s", Assign(name + "=", &unused).c_str());
                return STATUS_USAGE;
            }
            UnsetKey(*key, &wish->after.networks[wish->networks.front()]);
        }
        return STATUS_DONE;
    });
}

int RunAdd(const Arguments &arguments) {
    if (!KindIsClear(arguments)) {
        return STATUS_USAGE;
    }
    int added = NO_NETWORK;
    const int status = Change(arguments, [&](const Editor &editor, Wish *wish) {
        const int made = WishToAdd(arguments, editor, wish);
        added = wish->networks.empty() ? NO_NETWORK : wish->networks.front();
        return made;
    });
    if (status == STATUS_DONE && !arguments.json && !arguments.dryRun) {
        Tell("added %s", NetworkName(added).c_str());
    }
    return status;
}

int RunRemove(const Arguments &arguments) {
    const auto networks = ParseNetworks(arguments);
    if (!networks) {
        return STATUS_USAGE;
    }
    std::string names;
    for (const int network : *networks) {
        names += " " + NetworkName(network);
    }
    if (!Confirm(arguments, "Remove" + names + " with all settings?")) {
        Complain("nothing is removed");
        return STATUS_FAILED;
    }
    return Change(arguments, [&](const Editor &editor, Wish *wish) {
        for (const int network : wish->networks) {
            if (IsUsed(editor.context.host, network) || HasLeftSomething(editor.context.host, network)) {
                wish->removed.push_back(network);
            }
        }
        return STATUS_DONE;
    });
}
