// The administrator's and the installer's entry to the network library: one run-to-completion command per
// run.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "apps/zelan/posix/harbrelCLI/hostPolicy.h"
#include "apps/zelan/posix/harbrelCLI/options.h"
#include "apps/zelan/posix/harbrelCLI/postinstall.h"
#include "apps/zelan/posix/harbrelCLI/report.h"
#include "apps/zelan/posix/harbrelCLI/session.h"
#include "apps/zelan/posix/harbrelCLI/sweep.h"
#include "lib/fatal/memory.h"
#include "lib/fatal/panic.h"
#include "lib/thread/vthread.h"
#include "lib/unicode/unicode.h"

namespace {

// A standard descriptor that is closed would go to the next file that is opened, the database for one, and
// reports would be written into that.
void KeepStandardDescriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) < 0) {
            // Where even that cannot be opened the run goes on as it is.
            const int replacement = open("/dev/null", O_RDWR);
            static_cast<void>(replacement);
        }
    }
}

bool RunSweep(SweepMode mode) {
    if (!SetLibraryLoaded(true)) {
        return false;
    }
    if (mode == SWEEP_START) {
        VThread_Init(VTHREAD_MAIN_ID, "harbrelCLI");
    }
    const bool allWell = SweepAllNetworks(mode);
    SetLibraryLoaded(false);
    return allWell;
}

bool RunCommand(Command command, const Options &options) {
    switch (command) {
        case COMMAND_POSTINSTALL:
            return PostInstall(options.oldVersion);
        case COMMAND_MIGRATE:
            return MigrateNetworkSettings(options.settingsPath);
        case COMMAND_INSTALL_POLICY:
            return InstallHostPolicy(options.policySubnet, options.policyDhcp);
        case COMMAND_UNINSTALL_POLICY:
            return UninstallHostPolicy();
        case COMMAND_STOP:
            return RunSweep(SWEEP_STOP);
        case COMMAND_STATUS:
            return RunSweep(SWEEP_STATUS);
        case COMMAND_START:
            return RunSweep(SWEEP_START);
        case COMMAND_COUNT:
            break;
    }
    PanicNotReached();
}

}  // namespace

int main(int argc, char **argv) {
    KeepStandardDescriptors();
    Mem_InstallNewHandler();
    setvbuf(stdout, nullptr, _IOLBF, 0);  // what goes to both streams keeps its order in one file or pipe
    Unicode_Init(argc, &argv, nullptr);
    const char *debug = getenv("ORVANE_DEBUG");  // as it stands: three bytes are compared
    SetProgramName(argv[0]);
    if (debug != nullptr && strcmp(debug, "yes") == 0) {
        SetVerbose(true);
    }
    if (argc == 1) {
        PrintUsage(false);
        return EXIT_FAILURE;
    }

    Options options;
    const std::optional<int> ended = ReadOptions(argc, argv, &options);
    if (ended) {
        return *ended;
    }
    const std::optional<Command> command = SingleCommand(options);
    if (!command) {
        return EXIT_FAILURE;
    }
    signal(SIGINT, SIG_IGN);
    return RunCommand(*command, options) ? EXIT_SUCCESS : EXIT_FAILURE;
}
