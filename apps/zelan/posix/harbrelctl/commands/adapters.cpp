// adapter move, adapter default.
#include <algorithm>

#include "apps/zelan/posix/harbrelctl/commands/change.h"
#include "apps/zelan/posix/harbrelctl/commands/commands.h"
#include "apps/zelan/posix/harbrelctl/model/keys.h"
#include "apps/zelan/posix/harbrelctl/output/report.h"

namespace {

bool IsKnown(const Host &host, const std::string &adapter) {
    return host.config.mappings.contains(adapter) ||
           std::any_of(host.adapters.begin(), host.adapters.end(),
                       [&](const HostAdapter &one) { return one.name == adapter; });
}

// A network, "default" or "none".
std::optional<int> Destination(const std::string &text, const Config &config) {
    if (text == "none") {
        return NO_NETWORK;
    }
    return text == "default" ? config.defaultBridge : ParseNetwork(text);
}

int WishToMove(const Arguments &arguments, const Editor &editor, Wish *wish) {
    const Host &host = editor.context.host;
    // One that comes later may be given its place now, but a slip of the finger should not.
    if (!IsKnown(host, arguments.adapter) && !arguments.yes) {
        Complain("the host has no adapter \"%s\"; --yes settles where it goes when it comes",
                 arguments.adapter.c_str());
        return STATUS_USAGE;
    }
    const std::optional<int> destination = Destination(arguments.destination, host.config);
    if (!destination) {
        Complain("\"%s\" is no network, nor \"default\", nor \"none\"", arguments.destination.c_str());
        return STATUS_USAGE;
    }
    wish->after.mappings[arguments.adapter] = *destination;
    if (*destination != NO_NETWORK) {
        wish->networks = {*destination};  // the library itself restarts the daemons that it takes from
    }
    return STATUS_DONE;
}

}  // namespace

int RunAdapterMove(const Arguments &arguments) {
    return Change(arguments,
                  [&](const Editor &editor, Wish *wish) { return WishToMove(arguments, editor, wish); });
}

int RunAdapterDefault(const Arguments &arguments) {
    const std::optional<bool> on = ParseSwitch(arguments.onOff);
    if (!on) {
        Complain("\"%s\" is neither on nor off", arguments.onOff.c_str());
        return STATUS_USAGE;
    }
    return Change(arguments, [&](const Editor &editor, Wish *wish) {
        wish->after.defaultBridge = *on ? 0 : NO_NETWORK;
        wish->networks = {0};
        // Those that zelan0 has by default stay there; the library sees to the ones that it knows.
        for (const std::string &adapter : editor.context.host.networks[0].adapters) {
            if (!*on) {
                wish->after.mappings[adapter] = 0;
            }
        }
        return STATUS_DONE;
    });
}
