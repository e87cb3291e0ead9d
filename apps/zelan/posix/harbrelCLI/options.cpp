#include "apps/zelan/posix/harbrelCLI/options.h"

#include <getopt.h>

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <numeric>

#include "apps/zelan/posix/harbrelCLI/report.h"
#include "lib/fatal/memory.h"
#include "lib/string/tokens.h"

namespace {

enum OptionValue : int {
    OPTION_POSTINSTALL = 1,
    OPTION_MIGRATE,
    OPTION_INSTALL_POLICY,
    OPTION_UNINSTALL_POLICY,
    OPTION_START,
    OPTION_STOP,
    OPTION_STATUS,
    OPTION_VERSION,
    OPTION_HELP = 'h',
    OPTION_VERBOSE = 'v',
};

constexpr char POSTINSTALL_NAME[] = "postinstall";
constexpr char INSTALL_POLICY_NAME[] = "install-host-policy";

constexpr option LONG_OPTIONS[] = {
    {POSTINSTALL_NAME, required_argument, nullptr, OPTION_POSTINSTALL},
    {"migrate-network-settings", required_argument, nullptr, OPTION_MIGRATE},
    {INSTALL_POLICY_NAME, optional_argument, nullptr, OPTION_INSTALL_POLICY},
    {"uninstall-host-policy", no_argument, nullptr, OPTION_UNINSTALL_POLICY},
    {"start", no_argument, nullptr, OPTION_START},
    {"stop", no_argument, nullptr, OPTION_STOP},
    {"status", no_argument, nullptr, OPTION_STATUS},
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

bool ParsePostinstall(char *argument, Options *options) {
    Report(REPORT_VERBOSE, "arg: %s", argument);
    char *oldVersion = CutAtComma(argument);
    if (oldVersion == nullptr) {
        return false;
    }
    options->componentName.reset(Mem_Strdup(argument));
    char *newVersion = CutAtComma(oldVersion);
    if (newVersion == nullptr) {
        return false;
    }
    options->oldVersion.reset(Mem_Strdup(oldVersion));
    if (*newVersion == '\0') {
        return false;
    }
    options->newVersion.reset(Mem_Strdup(newVersion));
    Report(REPORT_VERBOSE, "postinstall options: %s %s %s", argument, oldVersion, newVersion);
    return true;
}

bool ParsePolicy(char *argument, Options *options) {
    if (argument == nullptr) {
        return true;
    }
    const char *dhcpText = CutAtComma(argument);
    if (dhcpText == nullptr) {
        return false;
    }
    options->policySubnet.reset(Mem_Strdup(argument));
    uint32_t dhcp = 0;
    if (!StrToUint(&dhcp, dhcpText) || dhcp > 1) {
        return false;
    }
    options->policyDhcp = dhcp;
    return true;
}

void CountIfValid(bool valid, Command command, const char *argument, const char *optionName,
                  Options *options) {
    if (valid) {
        options->counts[command]++;
    } else {
        Report(REPORT_ERROR, "Invalid argument %s specified for %s", argument, optionName);
    }
}

std::optional<int> TakeOption(int value, char *argument, Options *options) {
    switch (value) {
        case OPTION_POSTINSTALL:
            CountIfValid(ParsePostinstall(argument, options), COMMAND_POSTINSTALL, argument, POSTINSTALL_NAME,
                         options);
            break;
        case OPTION_MIGRATE:
            options->counts[COMMAND_MIGRATE]++;
            options->settingsPath = argument;
            break;
        case OPTION_INSTALL_POLICY:
            CountIfValid(ParsePolicy(argument, options), COMMAND_INSTALL_POLICY, argument,
                         INSTALL_POLICY_NAME, options);
            break;
        case OPTION_UNINSTALL_POLICY:
            options->counts[COMMAND_UNINSTALL_POLICY]++;
            break;
        case OPTION_START:
            options->counts[COMMAND_START]++;
            break;
        case OPTION_STOP:
            options->counts[COMMAND_STOP]++;
            break;
        case OPTION_STATUS:
            options->counts[COMMAND_STATUS]++;
            break;
        case OPTION_VERSION:
            PrintVersion();
            return EXIT_SUCCESS;
        case OPTION_HELP:
            PrintUsage(true);
            return EXIT_SUCCESS;
        case OPTION_VERBOSE:
            SetVerbose(true);
            break;
        default:
            PrintUsage(false);
            return EXIT_FAILURE;
    }
    return std::nullopt;
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
