#include "apps/zelan/posix/harbrelctl/commands/commandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstring>
#include <map>
#include <string>

#include "apps/zelan/posix/harbrelctl/commands/commands.h"
#include "apps/zelan/posix/harbrelctl/model/keys.h"
#include "apps/zelan/posix/harbrelctl/output/report.h"

namespace {

constexpr const char *VERSION = "harbrelctl version: 0.1";

std::string KeyHelp() {
    std::string help = "settings:";
    for (const KeyRow &key : Keys()) {
        help += std::string("\n") + key.name + "=" + key.allowed;
    }
    return help;
}

using AddOptions = void (*)(CLI::App *app, Arguments *arguments);

void NoOptions(CLI::App *, Arguments *) {}

void AnyNetworks(CLI::App *app, Arguments *arguments) {
    app->add_option("NET", arguments->networks,
                    "networks, as zelan8 or 8; all that have anything without one");
}

void OneNetwork(CLI::App *app, Arguments *arguments) {
    app->add_option("NET", arguments->network, "the network, as zelan8 or 8")->required();
}

void SomeNetworks(CLI::App *app, Arguments *arguments) {
    app->add_option("NET", arguments->networks, "networks, as zelan8 or 8")->required();
}

void Assignments(CLI::App *app, Arguments *arguments) {
    OneNetwork(app, arguments);
    // CLI11 2.4 takes no "=" in a name.
    app->add_option("SETTING", arguments->words, KeyHelp())->required()->type_name("KEY=VALUE");
}

void KeyNames(CLI::App *app, Arguments *arguments) {
    OneNetwork(app, arguments);
    app->add_option("KEY", arguments->words, "keys of set, back to their defaults")->required();
}

void NewNetwork(CLI::App *app, Arguments *arguments) {
    app->add_option("NET", arguments->network, "its name; the first free one without it");
    app->add_flag("--nat", arguments->nat, "guests reach the world outside through the host");
    app->add_flag("--host-only", arguments->hostOnly, "guests reach the host and each other");
    app->add_option("--bridge", arguments->bridge, "guests are on the net of these adapters of the host");
    app->add_option("--subnet", arguments->subnet, "as 192.168.8.0/24; without it one that nothing uses");
    app->add_flag("--no-dhcp", arguments->noDhcp, "guests set their addresses themselves");
}

void HostPorts(CLI::App *app, Arguments *arguments) {
    OneNetwork(app, arguments);
    app->add_option("PROTOCOL", arguments->protocol, "tcp or udp")->required();
    app->add_option("PORT", arguments->ports, "of the host, or FIRST-LAST")->required();
}

void NewForward(CLI::App *app, Arguments *arguments) {
    HostPorts(app, arguments);
    app->add_option("GUEST", arguments->target, "ADDRESS:PORT, as 192.168.8.10:80")->required();
    app->add_option("--note", arguments->note, "what it is for");
}

void NewReservation(CLI::App *app, Arguments *arguments) {
    OneNetwork(app, arguments);
    app->add_option("GUEST", arguments->guest, "MAC address, or name in the leases")->required();
    app->add_option("ADDRESS", arguments->target, "to keep for it; without one its present address");
}

void OldReservation(CLI::App *app, Arguments *arguments) {
    OneNetwork(app, arguments);
    app->add_option("GUEST", arguments->guest, "MAC address, name in the leases, or the address")->required();
}

void AdapterMove(CLI::App *app, Arguments *arguments) {
    app->add_option("ADAPTER", arguments->adapter, "of the host, as eth1")->required();
    app->add_option("NET", arguments->destination, "network, default or none")->required();
}

void OnOrOff(CLI::App *app, Arguments *arguments) {
    app->add_option("STATE", arguments->onOff, "on or off")->required();
}

void ApplyOptions(CLI::App *app, Arguments *arguments) {
    AnyNetworks(app, arguments);
    app->add_option("--plan", arguments->planFile,
                    "what --dry-run --json has printed, if nothing changed since");
}

void DoctorOptions(CLI::App *app, Arguments *arguments) {
    AnyNetworks(app, arguments);
    app->add_flag("--deep", arguments->deep, "send real packets too, from a port that is made for it");
}

void AnyFile(CLI::App *app, Arguments *arguments) {
    app->add_option("FILE", arguments->file, "/tmp/networking_export without it");
}

void SomeFile(CLI::App *app, Arguments *arguments) {
    app->add_option("FILE", arguments->file, "that export has written")->required();
}

void GraphOptions(CLI::App *app, Arguments *arguments) {
    app->add_option("-o", arguments->file, "FILE.svg, or any other for Graphviz's language");
}

struct CommandRow {
    const char *group;  // the first word of two, or null
    const char *name;
    const char *help;
    AddOptions addOptions;
    int (*run)(const Arguments &arguments);
};

constexpr CommandRow COMMANDS[] = {
    {nullptr, "list", "one line for each network that has anything", AnyNetworks, RunList},
    {nullptr, "show", "everything about one network", OneNetwork, RunShow},
    {nullptr, "add", "a new network", NewNetwork, RunAdd},
    {nullptr, "remove", "stops networks and takes them out", SomeNetworks, RunRemove},
    {nullptr, "set", "changes settings of a network", Assignments, RunSet},
    {nullptr, "unset", "takes settings back to their defaults", KeyNames, RunUnset},
    {"forward", "list", "ports of the host that lead to guests", AnyNetworks, RunForwardList},
    {"forward", "add", "lets a port of the host lead to a guest", NewForward, RunForwardAdd},
    {"forward", "remove", "takes ports back", HostPorts, RunForwardRemove},
    {"reserve", "list", "addresses that are kept for guests", AnyNetworks, RunReserveList},
    {"reserve", "add", "keeps an address for a guest", NewReservation, RunReserveAdd},
    {"reserve", "remove", "keeps it no longer", OldReservation, RunReserveRemove},
    {"adapter", "list", "the host's adapters and where they are bridged", NoOptions, RunAdapterList},
    {"adapter", "move", "bridges an adapter to another network", AdapterMove, RunAdapterMove},
    {"adapter", "default", "whether zelan0 takes adapters without a place", OnOrOff, RunAdapterDefault},
    {"lease", "list", "addresses that the DHCP servers have given away", AnyNetworks, RunLeaseList},
    {"guest", "list", "who is plugged in, with traffic counters", AnyNetworks, RunGuestList},
    {nullptr, "start", "starts what is configured", AnyNetworks, RunStart},
    {nullptr, "stop", "stops what runs", AnyNetworks, RunStop},
    {nullptr, "restart", "stops and starts", AnyNetworks, RunRestart},
    {nullptr, "apply", "brings what runs into line with the settings", ApplyOptions, RunApply},
    {nullptr, "edit", "settings of a network as a text", OneNetwork, RunEdit},
    {nullptr, "export", "writes all settings to a file", AnyFile, RunExport},
    {nullptr, "import", "replaces all settings by those of a file", SomeFile, RunImport},
    {nullptr, "doctor", "finds the first broken link of each network", DoctorOptions, RunDoctor},
    {nullptr, "watch", "a line for each change, until it is interrupted", NoOptions, RunWatch},
    {nullptr, "graph", "a picture of all networks", GraphOptions, RunGraph},
};

struct GroupRow {
    const char *name;
    const char *help;
};
constexpr GroupRow GROUPS[] = {
    {"forward", "ports of the host that lead to guests"},
    {"reserve", "addresses that are kept for guests"},
    {"adapter", "the host's adapters and where they are bridged"},
    {"lease", "addresses that the DHCP servers have given away"},
    {"guest", "who is plugged in"},
};

void AddGlobalOptions(CLI::App *app, Arguments *arguments) {
    app->add_flag("-j,--json", arguments->json, "the result as one JSON document");
    app->add_flag("--no-legend", arguments->noLegend, "no headline above columns");
    app->add_flag("-n,--dry-run", arguments->dryRun, "show what would change, and change nothing");
    app->add_flag("--no-apply", arguments->noApply, "write the settings, and leave what runs alone");
    app->add_flag("-v,--verbose", arguments->verbose, "tell each step");
    app->add_flag("-y,--yes", arguments->yes, "do not ask");
    app->set_version_flag("--version", VERSION);
}

CLI::App *AddGroup(CLI::App *top, const char *name) {
    const auto *const row = std::find_if(std::begin(GROUPS), std::end(GROUPS), [name](const GroupRow &group) {
        return strcmp(group.name, name) == 0;
    });
    return top->add_subcommand(name, row->help)->require_subcommand(1)->fallthrough();
}

void AddCommands(CLI::App *top, Arguments *arguments, const CommandRow **chosen) {
    std::map<std::string, CLI::App *> groups;
    for (const CommandRow &row : COMMANDS) {
        CLI::App *parent = top;
        if (row.group != nullptr) {
            CLI::App *&group = groups[row.group];
            group = group != nullptr ? group : AddGroup(top, row.group);
            parent = group;
        }
        CLI::App *const command = parent->add_subcommand(row.name, row.help)->fallthrough();
        row.addOptions(command, arguments);
        command->callback([chosen, &row] { *chosen = &row; });
    }
}

// What the parser has to say: help, or why it refuses.
int Refuse(const CLI::App &top, const CLI::ParseError &error) {
    if (error.get_exit_code() == 0) {
        top.exit(error);
        return CloseOutput(STATUS_DONE);
    }
    // A word that is no command is told as the lack of one.
    const std::vector<std::string> unknown = top.remaining(true);
    if (!unknown.empty()) {
        Complain("\"%s\" is not understood here; --help tells what is", unknown.front().c_str());
    } else {
        Complain("%s; --help tells more", error.what());
    }
    return STATUS_USAGE;
}

}  // namespace

int RunCommandLine(int argc, char **argv) {
    CLI::App top("Shows and changes the virtual networks of this host. harbrelctl(8) has examples.",
                 "harbrelctl");
    Arguments arguments;
    const CommandRow *chosen = nullptr;
    AddGlobalOptions(&top, &arguments);
    top.require_subcommand(1);
    AddCommands(&top, &arguments, &chosen);
    try {  // the parser has no other way to refuse
        top.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return Refuse(top, error);
    }
    SetStepsAside(arguments.json);
    return CloseOutput(chosen->run(arguments));
}
