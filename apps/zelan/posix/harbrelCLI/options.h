// The command line: which commands were accepted, and with which arguments.
#pragma once

#include <cstdint>
#include <optional>

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

// Texts are borrowed from argv; those of an argument that was refused are not kept.
struct Options {
    uint32_t counts[COMMAND_COUNT] = {};  // how many times each command was accepted
    const char *oldVersion = nullptr;
    const char *settingsPath = nullptr;
    const char *policySubnet = nullptr;
    bool policyDhcp = false;
};

// Reads the options strictly left to right. A value means that the run ends here with this exit status: help,
// version, a refused option, or an argument left over.
std::optional<int> ReadOptions(int argc, char **argv, Options *options);

// The one command, or nothing (with the refusal reported) unless exactly one was accepted.
std::optional<Command> SingleCommand(const Options &options);
