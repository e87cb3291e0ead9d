// The command line of harbrelCLI up to the point where a command is accepted: nothing here needs a database.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/command.h"

namespace {

const std::string CLI = ProgramPath("harbrelCLI");
const std::string TRY = "Try '" + CLI + " --help' for more information\n";
const std::string NOT_ONE = "Exactly one command must be specified\n" + TRY;
const std::string VERSION = CLI + " version: 0.1\n";
const std::string USAGE =
    "Usage: " + CLI +
    " [--verbose | -v] <option>\n"
    "Use exactly one of these commands:\n"
    "  --postinstall <component-name>,<old-version>,<new-version>\n"
    "  --migrate-network-settings <location of settings file>\n"
    "  --install-host-policy [<subnet>,<dhcp=0|1>]\n  --uninstall-host-policy\n"
    "  --start\n  --stop\n  --status\n\nAdditional options:\n  --help | -h\n  --version\n";

TEST(CommandLine, EndsAsTold) {
    const std::string badPolicy = "Invalid argument 172.16.0.0 specified for install-host-policy\n" + NOT_ONE;
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string output, errors;
    } cases[] = {
        {{}, 1, "", TRY},
        {{"--vers", "--bogus"}, 0, "", VERSION},
        {{"-h", "--bogus"}, 0, "", VERSION + USAGE},
        {{"--bogus", "--help"}, 1, "", CLI + ": unrecognized option '--bogus'\n" + TRY},
        {{"--verbose"}, 1, "Commands specified: \n", NOT_ONE},
        {{"--start", "--start"}, 1, "", NOT_ONE},
        {{"-v", "--stop", "--status"}, 1, "Commands specified: stop status \n", NOT_ONE},
        {{"--install-host-policy", "172.16.0.0,1"}, 1, "", "Unknown option/argument: 172.16.0.0,1\n\n"},
        {{"--install-host-policy=172.16.0.0,2"}, 1, "", badPolicy},
        {{"--install-host-policy=172.16.0.0,-18446744073709551615"}, 1, "", badPolicy},
        {{"--install-host-policy=172.16.0.0,"}, 1, "", badPolicy},
        {{"--install-host-policy=172.16.0.0"}, 1, "", badPolicy},
        {{"--postinstall", "a"}, 1, "", "Invalid argument a specified for postinstall\n" + NOT_ONE},
        {{"--postinstall", "a,b,"}, 1, "", "Invalid argument a specified for postinstall\n" + NOT_ONE},
        {{"-v", "--postinstall", "a,,c,d", "--start"},
         1,
         "arg: a,,c,d\npostinstall options: a  c,d\nCommands specified: postinstall start \n",
         NOT_ONE}};
    for (const auto &row : cases) {
        std::vector<std::string> command = {CLI};
        command.insert(command.end(), row.arguments.begin(), row.arguments.end());
        SCOPED_TRACE(command.back());
        const CommandResult result = RunCommand(command);
        EXPECT_EQ(row.status, result.status);
        EXPECT_EQ(row.output, result.output);
        EXPECT_EQ(row.errors, result.errors);
    }
}

TEST(CommandLine, DebugTurnsVerboseOnOnlyForTheExactWord) {
    EXPECT_EQ("Commands specified: \n", RunCommand({"env", "ORVANE_DEBUG=yes", CLI, "--"}).output);
    for (const char *value : {"ORVANE_DEBUG=Yes", "ORVANE_DEBUG=\xff"}) {
        const CommandResult quiet = RunCommand({"env", value, CLI, "--"});
        EXPECT_EQ("", quiet.output);
        EXPECT_EQ(NOT_ONE, quiet.errors);
    }
}

TEST(SweepWithoutALibrary, SaysThatItCouldNotInitialize) {
    std::filesystem::create_directory("/var/log/harbrel");
    for (const char *command :
         {"--start", "--stop", "--status", "--install-host-policy", "--uninstall-host-policy"}) {
        const CommandResult result = RunCommand({CLI, command});
        EXPECT_EQ(1, result.status) << command;
        EXPECT_EQ("Failed to initialize\n", result.errors) << command;
    }
}

}  // namespace
