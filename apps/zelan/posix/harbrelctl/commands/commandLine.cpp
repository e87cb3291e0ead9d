#include "apps/zelan/posix/harbrelctl/commands/commandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstring>
#include <map>
#include <string>

#include "apps/zelan/posix/harbrelctl/commands/commands.h"
#include "apps/zelan/posix/harbrelctl/output/report.h"

namespace {

constexpr const char *VERSION = "harbrelctl version: 0.1";

using AddOptions = void (*)(CLI::App *app, Arguments *arguments);

void NoOptions(CLI::App *, Arguments *) {}

void AnyNetworks(CLI::App *app, Arguments *arguments) {
    app->add_option("NET", arguments->networks,
                    "networks, as zelan8 or 8; all that have anything without one");
}

void OneNetwork(CLI::App *app, Arguments *arguments) {
    app->add_option("NET", arguments->networks, "the network, as zelan8 or 8")->required()->expected(1);
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
    {"forward", "list", "ports of the host that lead to guests", AnyNetworks, RunForwardList},
    {"reserve", "list", "addresses that are kept for guests", AnyNetworks, RunReserveList},
    {"adapter", "list", "the host's adapters and where they are bridged", NoOptions, RunAdapterList},
    {"lease", "list", "addresses that the DHCP servers have given away", AnyNetworks, RunLeaseList},
    {"guest", "list", "who is plugged in, with traffic counters", AnyNetworks, RunGuestList},
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
