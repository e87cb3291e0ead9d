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
#include "lib/file/posix.h"
#include "lib/thread/vthread.h"
#include "lib/unicode/unicode.h"

namespace {

// A standard descriptor that is closed would go to the next file that is opened, the database for one, and
// reports would be written into that.
void KeepStandardDescriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) < 0) {
            (void)!open("/dev/null", O_RDWR);
        }
    }
}

int RunSweep(SweepMode mode) {
    if (!SetLibraryLoaded(true)) {
        return EXIT_FAILURE;
    }
    if (mode == SWEEP_START) {
        VThread_Init(VTHREAD_MAIN_ID, "harbrelCLI");
    }
    const int result = SweepAllNetworks(mode);
    SetLibraryLoaded(false);
    return result;
}

int RunCommand(Command command, const Options &options) {
    switch (command) {
        case COMMAND_POSTINSTALL:
            return PostInstall(options.oldVersion.get());
        case COMMAND_MIGRATE:
            return MigrateNetworkSettings(options.settingsPath);
        case COMMAND_INSTALL_POLICY:
            return InstallHostPolicy(options.policySubnet.get(), options.policyDhcp != 0);
        case COMMAND_UNINSTALL_POLICY:
            return UninstallHostPolicy();
        case COMMAND_STOP:
            return RunSweep(SWEEP_STOP);
        case COMMAND_STATUS:
            return RunSweep(SWEEP_STATUS);
        case COMMAND_START:
        case COMMAND_COUNT:
            break;
    }
    return RunSweep(SWEEP_START);
}

}  // namespace

int main(int argc, char **argv) {
    KeepStandardDescriptors();
    Mem_InstallNewHandler();
    setvbuf(stdout, nullptr, _IOLBF, 0);  // what goes to both streams keeps its order in one file or pipe
    Unicode_Init(argc, &argv, nullptr);
    const char *debug = Posix_Getenv("ORVANE_DEBUG");
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
    return RunCommand(*command, options);
}
