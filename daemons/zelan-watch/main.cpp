// zelan-watch --serve     started by the first daemon that needs it, with the socket as standard input
// zelan-watch --sweep     cleans up behind daemons that are dead, whoever has killed them, and ends
//
// Outlives the daemons and removes what they leave behind. It ends when no daemon is left.
#include <fcntl.h>
#include <linux/capability.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "daemons/common/capabilities.h"
#include "daemons/common/complain.h"
#include "daemons/common/file.h"
#include "daemons/common/startersLegacy.h"
#include "daemons/common/watch.h"
#include "daemons/zelan-watch/watcher.h"

namespace {

constexpr int CAPABILITIES[] = {CAP_NET_ADMIN};

// The library's, unless its settings name another.
constexpr char LOG_FILE[] = "/var/log/harbrel";

// Short of memory the kernel is to kill a daemon rather than the one who cleans up behind it.
constexpr char MEMORY_PRIORITY[] = "-900";

// One for each daemon of the host, and one for each that is being started.
void AllowManyDescriptors() {
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

// The socket, moved away from where it came; standard input gets nothing in its place.
FileDescriptor TakeListener() {
    FileDescriptor listener(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    FileDescriptor nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
    dup2(nothing.get(), STDIN_FILENO);
    int flags = fcntl(listener.get(), F_GETFL);
    if (fcntl(listener.get(), F_SETFL, flags | O_NONBLOCK) != 0) {
        Complain("standard input is no socket: %s", strerror(errno));
        listener.reset();
    }
    return listener;
}

int Serve() {
    close_range(STDERR_FILENO + 1, UINT_MAX, 0);
    for (int signalNumber : {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGPIPE}) {
        signal(signalNumber, SIG_IGN);
    }
    (void)!chdir("/");
    StartersLegacy_Shed();
    AllowManyDescriptors();
    File_Write("/proc/self/oom_score_adj", MEMORY_PRIORITY);
    if (!Capabilities_KeepForGood(CAPABILITIES)) {
        Complain("cannot give capabilities up: %s", strerror(errno));
    }
    FileDescriptor listener = TakeListener();
    Watcher watcher;
    if (!listener || !watcher.Begin(std::move(listener))) {
        return EXIT_FAILURE;
    }
    watcher.Run();
    return EXIT_SUCCESS;
}

int Sweep() {
    // Whoever reads what this process says is not to wait for the end of the watcher.
    FileDescriptor log(open(LOG_FILE, O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!log) {
        log.reset(open("/dev/null", O_WRONLY | O_CLOEXEC));
    }
    FileDescriptor connection = Watch_Connect(log.get());
    bool swept = connection && Watch_AskFirst(&connection, WATCH_SWEEP, log.get()) == WATCH_DONE;
    return swept ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int, char **argv) {
    const char *command = argv[1] != nullptr ? argv[1] : "";
    if (strcmp(command, "--serve") == 0) {
        return Serve();
    }
    if (strcmp(command, "--sweep") == 0) {
        return Sweep();
    }
    Complain("usage: --sweep");
    return EXIT_FAILURE;
}
