// The command line: which commands were accepted, and with which arguments.
#pragma once

#include <cstdint>
#include <optional>

#include "lib/misc/owners.h"

enum Command : unsigned {
    COMMAND_POSTINSTALL,
    COMMAND_MIGRATE,
    COMMAND_INSTALL_POLICY,
    COMMAND_UNINSTALL_POLICY,
    COMMAND_START,
    COMMAND_STOP,
    COMMAND_STATUS,
    COMMAND_COUNT,
};

struct Options {
    uint32_t counts[COMMAND_COUNT] = {};  // how many times each command was accepted
    MallocString componentName;
    MallocString oldVersion;
    MallocString newVersion;
    const char *settingsPath = nullptr;  // borrowed from argv
    MallocString policySubnet;
    uint32_t policyDhcp = 0;  // 0 or 1
};

// Reads the options strictly left to right. A value means that the run ends here with this exit status: help,
// version, a refused option, or an argument left over.
std::optional<int> ReadOptions(int argc, char **argv, Options *options);

// The one command, or nothing (with the refusal reported) unless exactly one was accepted.
std::optional<Command> SingleCommand(const Options &options);
