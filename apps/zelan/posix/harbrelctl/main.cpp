// The network editor: shows, changes and checks the virtual networks of this host, one command a run.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <initializer_list>

#include "apps/zelan/posix/harbrelctl/commands/commandLine.h"

namespace {

// A standard descriptor that is closed would go to the next file that is opened, the database for one.
void KeepStandardDescriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) < 0) {
            (void)!open("/dev/null", O_RDWR);
        }
    }
}

}  // namespace

int main(int argc, char **argv) {
    KeepStandardDescriptors();
    signal(SIGPIPE, SIG_IGN);  // a result that nobody reads is an error of the output, not an end of the work
    return RunCommandLine(argc, argv);
}
