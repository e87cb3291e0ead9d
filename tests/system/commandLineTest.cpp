// The command line of harbrelCLI up to the point where a command is accepted, and all that it says without a
// database.
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
    std::filesystem::create_directory("/var/log/harbrel");  // where the log is to be
    const std::string badPolicy = "Invalid argument 172.16.0.0 specified for install-host-policy\n" + NOT_ONE;
    const std::string badInstall = "Invalid argument a specified for postinstall\n" + NOT_ONE;
    const struct {
        std::string line;  // $0 is the program
        int status;
        std::string output, errors;
    } cases[] = {
        {"$0", 1, "", TRY},
        {"$0 --vers --bogus", 0, "", VERSION},
        {"$0 -h --bogus", 0, "", VERSION + USAGE},
        {"$0 --bogus --help", 1, "", CLI + ": unrecognized option '--bogus'\n" + TRY},
        {"$0 --verbose", 1, "Commands specified: \n", NOT_ONE},
        {"ORVANE_DEBUG=yes $0 --", 1, "Commands specified: \n", NOT_ONE},
        {"ORVANE_DEBUG=Yes $0 --", 1, "", NOT_ONE},
        {"ORVANE_DEBUG=$(printf '\\377') $0 --", 1, "", NOT_ONE},
        {"$0 --start --start", 1, "", NOT_ONE},
        {"$0 -v --stop --status", 1, "Commands specified: stop status \n", NOT_ONE},
        {"$0 --install-host-policy a b", 1, "",
         "Unknown option/argument: a\n\nUnknown option/argument: b\n\n"},
        {"$0 --install-host-policy=172.16.0.0,2", 1, "", badPolicy},
        {"$0 --install-host-policy=172.16.0.0,-18446744073709551615", 1, "", badPolicy},
        {"$0 --install-host-policy=172.16.0.0,", 1, "", badPolicy},
        {"$0 --install-host-policy=172.16.0.0", 1, "", badPolicy},
        {"$0 --postinstall a", 1, "", badInstall},
        {"$0 --postinstall a,b,", 1, "", badInstall},
        {"$0 -v --postinstall a,,c,d --start", 1,
         "arg: a,,c,d\npostinstall options: a  c,d\nCommands specified: postinstall start \n", NOT_ONE},
        {"$0 --start", 1, "", "Failed to initialize\n"},
        {"$0 -v --status", 1, "Commands specified: status \n", "Failed to initialize\n"},
        {"$0 --install-host-policy", 1, "", "Failed to initialize\n"},
        {"$0 --uninstall-host-policy", 1, "", "Failed to initialize\n"}};
    for (const auto &row : cases) {
        SCOPED_TRACE(row.line);
        const CommandResult result = RunCommand({"sh", "-c", row.line, CLI});
        EXPECT_EQ(row.status, result.status);
        EXPECT_EQ(row.output, result.output);
        EXPECT_EQ(row.errors, result.errors);
    }
}

}  // namespace
