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
    const char *name;
    std::vector<std::string> arguments;
    int status;
    std::string output;
    std::string errors;
};

void PrintTo(const CommandLineCase &testCase, std::ostream *stream) {
    *stream << testCase.name;
}

std::string CaseName(const testing::TestParamInfo<CommandLineCase> &info) {
    return info.param.name;
}

class CommandLine : public testing::TestWithParam<CommandLineCase> {};

TEST_P(CommandLine, EndsAsTold) {
    std::vector<std::string> command = {CLI};
    command.insert(command.end(), GetParam().arguments.begin(), GetParam().arguments.end());
    const CommandResult result = RunCommand(command);
    EXPECT_EQ(result.status, GetParam().status);
    EXPECT_EQ(result.output, GetParam().output);
    EXPECT_EQ(result.errors, GetParam().errors);
}

INSTANTIATE_TEST_SUITE_P(
    Table, CommandLine,
    testing::Values(
        CommandLineCase{"NoArguments", {}, 1, "", TryLine()},
        CommandLineCase{"VersionGoesToStderr", {"--version"}, 0, "", CLI + " version: 0.1\n"},
        CommandLineCase{
            "VersionByPrefixBeforeARefusal", {"--vers", "--bogus"}, 0, "", CLI + " version: 0.1\n"},
        CommandLineCase{"RefusalBeforeHelp",
                        {"--bogus", "--help"},
                        1,
                        "",
                        CLI + ": unrecognized option '--bogus'\n" + TryLine()},
        CommandLineCase{"VerboseIsNoCommand", {"--verbose"}, 1, "Commands specified: \n", OneCommandLines()},
        CommandLineCase{"SameCommandTwice", {"--start", "--start"}, 1, "", OneCommandLines()},
        CommandLineCase{"TwoCommandsVerbose",
                        {"-v", "--stop", "--status"},
                        1,
                        "Commands specified: stop status \n",
                        OneCommandLines()},
        CommandLineCase{"ArgumentLeftOver", {"--stop", "extra"}, 1, "", "Unknown option/argument: extra\n\n"},
        CommandLineCase{"DetachedPolicyIsLeftOver",
                        {"--install-host-policy", "172.16.0.0,1"},
                        1,
                        "",
                        "Unknown option/argument: 172.16.0.0,1\n\n"},
        CommandLineCase{
            "PolicyFlagTooLarge",
            {"--install-host-policy=172.16.0.0,2"},
            1,
            "",
            "Invalid argument 172.16.0.0 specified for install-host-policy\n" + OneCommandLines()},
        CommandLineCase{
            "PolicyFlagWrapping64Bits",
            {"--install-host-policy=172.16.0.0,-18446744073709551615"},
            1,
            "",
            "Invalid argument 172.16.0.0 specified for install-host-policy\n" + OneCommandLines()},
        CommandLineCase{
            "PolicyFlagEmpty",
            {"--install-host-policy=172.16.0.0,"},
            1,
            "",
            "Invalid argument 172.16.0.0 specified for install-host-policy\n" + OneCommandLines()},
        CommandLineCase{
            "PolicyFlagWrapping32Bits",
            {"--install-host-policy=172.16.0.0,4294967297"},
            1,
            "",
            "Invalid argument 172.16.0.0 specified for install-host-policy\n" + OneCommandLines()},
        CommandLineCase{
            "PolicyWithoutComma",
            {"--install-host-policy=172.16.0.0"},
            1,
            "",
            "Invalid argument 172.16.0.0 specified for install-host-policy\n" + OneCommandLines()},
        CommandLineCase{"PostinstallWithoutNewVersion",
                        {"--postinstall", "a,b,"},
                        1,
                        "",
                        "Invalid argument a specified for postinstall\n" + OneCommandLines()},
        CommandLineCase{"PostinstallWithoutComma",
                        {"--postinstall", "a"},
                        1,
                        "",
                        "Invalid argument a specified for postinstall\n" + OneCommandLines()},
        CommandLineCase{"PostinstallShownWhenVerboseStandsBefore",
                        {"-v", "--postinstall", "a,,c,d", "--start"},
                        1,
                        "arg: a,,c,d\npostinstall options: a  c,d\nCommands specified: postinstall start \n",
                        OneCommandLines()},
        CommandLineCase{"PostinstallHiddenWhenVerboseStandsBehind",
                        {"--postinstall", "a,b,c", "--start", "-v"},
                        1,
                        "Commands specified: postinstall start \n",
                        OneCommandLines()}),
    CaseName);

TEST(CommandLineEnvironment, DebugTurnsVerboseOnOnlyForTheExactWord) {
    EXPECT_EQ(RunCommand({"env", "ORVANE_DEBUG=yes", CLI, "--start", "--stop"}).output,
              "Commands specified: start stop \n");
    EXPECT_EQ(RunCommand({"env", "ORVANE_DEBUG=Yes", CLI, "--start", "--stop"}).output, "");
}

TEST(CommandLineHelp, NamesEveryCommandOnStderr) {
    const CommandResult result = RunCommand({CLI, "-h", "--bogus"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors.find(CLI + " version: 0.1\nUsage: " + CLI + " [--verbose | -v] <option>\n"), 0u);
    EXPECT_NE(result.errors.find("\n  --install-host-policy [<subnet>,<dhcp=0|1>]\n"), std::string::npos);
    EXPECT_EQ(result.errors.substr(result.errors.size() - 13), "\n  --version\n");
}

TEST(SweepWithoutALibrary, SaysThatItCouldNotInitialize) {
    std::filesystem::create_directory("/var/log/harbrel");
    for (const char *command : {"--start", "--stop", "--status"}) {
        const CommandResult result = RunCommand({CLI, command});
        EXPECT_EQ(result.status, 1) << command;
        EXPECT_EQ(result.errors, "Failed to initialize\n") << command;
    }
}

}  // namespace
