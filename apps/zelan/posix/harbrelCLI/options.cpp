#include "apps/zelan/posix/harbrelCLI/options.h"

#include <getopt.h>

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <numeric>

#include "apps/zelan/posix/harbrelCLI/report.h"
#include "lib/string/tokens.h"

namespace {

// What getopt_long returns: for a command, its place in LONG_OPTIONS plus 1.
enum OptionValue : int {
    OPTION_FIRST_COMMAND = 1,
    OPTION_VERSION = OPTION_FIRST_COMMAND + COMMAND_COUNT,
    OPTION_HELP = 'h',
    OPTION_VERBOSE = 'v',
};

constexpr option CommandOption(Command command, const char *name, int argument) {
    return {name, argument, nullptr, OPTION_FIRST_COMMAND + static_cast<int>(command)};
}

constexpr option LONG_OPTIONS[] = {
    CommandOption(COMMAND_POSTINSTALL, "postinstall", required_argument),
    CommandOption(COMMAND_MIGRATE, "migrate-network-settings", required_argument),
    CommandOption(COMMAND_INSTALL_POLICY, "install-host-policy", optional_argument),
    CommandOption(COMMAND_UNINSTALL_POLICY, "uninstall-host-policy", no_argument),
    CommandOption(COMMAND_START, "start", no_argument),
    CommandOption(COMMAND_STOP, "stop", no_argument),
    CommandOption(COMMAND_STATUS, "status", no_argument),
    {"version", no_argument, nullptr, OPTION_VERSION},
    {"help", no_argument, nullptr, OPTION_HELP},
    {"verbose", no_argument, nullptr, OPTION_VERBOSE},
    {nullptr, 0, nullptr, 0},
};

constexpr const char *COMMAND_WORDS[COMMAND_COUNT] = {
    "postinstall ", "migrate ", "install-hostpolicy ", "uninstall-hostpolicy ", "start ", "stop ", "status ",
};

// Overwrites the next comma with a terminator. Returns what stands behind it, or null without a comma.
char *CutAtComma(char *text) {
    char *comma = strchr(text, ',');
    if (comma == nullptr) {
        return nullptr;
    }
    *comma = '\0';
    return comma + 1;
}

// The fields are cut in place; the commas of a refused argument stay overwritten.
bool ParsePostinstall(char *component, Options *options) {
    Report(REPORT_VERBOSE, "arg: %s", component);
    char *oldVersion = CutAtComma(component);
    const char *newVersion = oldVersion != nullptr ? CutAtComma(oldVersion) : nullptr;
    if (newVersion == nullptr) {
        return false;
    }
    options->oldVersion = oldVersion;
    if (*newVersion == '\0') {
        return false;
    }
    Report(REPORT_VERBOSE, "postinstall options: %s %s %s", component, oldVersion, newVersion);
    return true;
}

bool ParsePolicy(char *subnet, Options *options) {
    if (subnet == nullptr) {
        return true;
    }
    const char *dhcpText = CutAtComma(subnet);
    uint32_t dhcp = 0;
    if (dhcpText == nullptr || !StrToUint(&dhcp, dhcpText) || dhcp > 1) {
        return false;
    }
    options->policySubnet = subnet;
    options->policyDhcp = dhcp == 1;
    return true;
}

bool ParseArgument(Command command, char *argument, Options *options) {
    switch (command) {
        case COMMAND_POSTINSTALL:
            return ParsePostinstall(argument, options);
        case COMMAND_INSTALL_POLICY:
            return ParsePolicy(argument, options);
        case COMMAND_MIGRATE:
            options->settingsPath = argument;
            return true;
        default:
            return true;  // without an argument
    }
}

void TakeCommand(Command command, char *argument, Options *options) {
    if (ParseArgument(command, argument, options)) {
        options->counts[command]++;
    } else {
        Report(REPORT_ERROR, "Invalid argument %s specified for %s", argument, LONG_OPTIONS[command].name);
    }
}

std::optional<int> TakeOption(int value, char *argument, Options *options) {
    switch (value) {
        case OPTION_VERSION:
            PrintVersion();
            return EXIT_SUCCESS;
        case OPTION_HELP:
            PrintUsage(true);
            return EXIT_SUCCESS;
        case OPTION_VERBOSE:
            SetVerbose(true);
            return std::nullopt;
        case '?':
            PrintUsage(false);
            return EXIT_FAILURE;
        default:
            TakeCommand(static_cast<Command>(value - OPTION_FIRST_COMMAND), argument, options);
            return std::nullopt;
    }
}

}  // namespace

std::optional<int> ReadOptions(int argc, char **argv, Options *options) {
    int value;
    while ((value = getopt_long(argc, argv, "vh", LONG_OPTIONS, nullptr)) != -1) {
        const std::optional<int> status = TakeOption(value, optarg, options);
        if (status) {
            return status;
        }
    }
    if (optind >= argc) {
        return std::nullopt;
    }
    for (int i = optind; i < argc; i++) {
        Report(REPORT_ERROR, "Unknown option/argument: %s\n", argv[i]);
    }
    return EXIT_FAILURE;
}

std::optional<Command> SingleCommand(const Options &options) {
    const char *words[COMMAND_COUNT];
    std::optional<Command> found;
    for (unsigned i = 0; i < COMMAND_COUNT; i++) {
        words[i] = options.counts[i] != 0 ? COMMAND_WORDS[i] : "";
        if (options.counts[i] != 0) {
            found = static_cast<Command>(i);
        }
    }
    Report(REPORT_VERBOSE, "Commands specified: %s%s%s%s%s%s%s", words[0], words[1], words[2], words[3],
           words[4], words[5], words[6]);
    if (std::accumulate(std::begin(options.counts), std::end(options.counts), 0u) != 1) {
        Report(REPORT_ERROR, "Exactly one command must be specified");
        PrintUsage(false);
        return std::nullopt;
    }
    return found;
}
