// The command line of harbrelCLI up to the point where a command is accepted: nothing here needs a database.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/command.h"

namespace {

const std::string CLI = ProgramPath("harbrelCLI");

std::string TryLine() {
    return "Try '" + CLI + " --help' for more information\n";
}

std::string OneCommandLines() {
    return "Exactly one command must be specified\n" + TryLine();
}

struct CommandLineCase {
    std::vector<std::string> arguments;
    int status;
    std::string output;
    std::string errors;
};

CommandResult RunTool(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), CLI);
    return RunCommand(arguments);
}

TEST(CommandLine, EndsAsTold) {
    const std::string badPolicy =
        "Invalid argument 172.16.0.0 specified for install-host-policy\n" + OneCommandLines();
    const std::string badPostinstall = "Invalid argument a specified for postinstall\n" + OneCommandLines();
    const CommandLineCase cases[] = {
        {{}, 1, "", TryLine()},
        {{"--vers", "--bogus"}, 0, "", CLI + " version: 0.1\n"},
        {{"--bogus", "--help"}, 1, "", CLI + ": unrecognized option '--bogus'\n" + TryLine()},
        {{"--verbose"}, 1, "Commands specified: \n", OneCommandLines()},
        {{"--start", "--start"}, 1, "", OneCommandLines()},
        {{"-v", "--stop", "--status"}, 1, "Commands specified: stop status \n", OneCommandLines()},
        {{"--install-host-policy", "172.16.0.0,1"}, 1, "", "Unknown option/argument: 172.16.0.0,1\n\n"},
        {{"--install-host-policy=172.16.0.0,2"}, 1, "", badPolicy},
        {{"--install-host-policy=172.16.0.0,-18446744073709551615"}, 1, "", badPolicy},
        {{"--install-host-policy=172.16.0.0,"}, 1, "", badPolicy},
        {{"--install-host-policy=172.16.0.0"}, 1, "", badPolicy},
        {{"--postinstall", "a,b,"}, 1, "", badPostinstall},
        {{"-v", "--postinstall", "a,,c,d", "--start"},
         1,
         "arg: a,,c,d\npostinstall options: a  c,d\nCommands specified: postinstall start \n",
         OneCommandLines()}};
    for (const CommandLineCase &row : cases) {
        SCOPED_TRACE(row.arguments.empty() ? "no argument" : row.arguments.back());
        const CommandResult result = RunTool(row.arguments);
        EXPECT_EQ(result.status, row.status);
        EXPECT_EQ(result.output, row.output);
        EXPECT_EQ(result.errors, row.errors);
    }
}

TEST(CommandLineEnvironment, DebugTurnsVerboseOnOnlyForTheExactWord) {
    EXPECT_EQ(RunCommand({"env", "ORVANE_DEBUG=yes", CLI, "--start", "--stop"}).output,
              "Commands specified: start stop \n");
    EXPECT_EQ(RunCommand({"env", "ORVANE_DEBUG=Yes", CLI, "--start", "--stop"}).output, "");
}

TEST(CommandLineHelp, NamesEveryCommandOnStderr) {
    const CommandResult result = RunTool({"-h", "--bogus"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors.find(CLI + " version: 0.1\nUsage: " + CLI + " [--verbose | -v] <option>\n"), 0u);
    EXPECT_NE(result.errors.find("\n  --install-host-policy [<subnet>,<dhcp=0|1>]\n"), std::string::npos);
    EXPECT_EQ(result.errors.substr(result.errors.size() - 13), "\n  --version\n");
}

TEST(SweepWithoutALibrary, SaysThatItCouldNotInitialize) {
    std::filesystem::create_directory("/var/log/harbrel");
    for (const char *command : {"--start", "--stop", "--status"}) {
        const CommandResult result = RunTool({command});
        EXPECT_EQ(result.status, 1) << command;
        EXPECT_EQ(result.errors, "Failed to initialize\n") << command;
    }
}

}  // namespace
