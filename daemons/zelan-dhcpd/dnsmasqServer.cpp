#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "daemons/common/complain.h"
#include "daemons/common/namespace.h"
#include "daemons/common/text.h"
#include "daemons/zelan-dhcpd/powerless.h"
#include "daemons/zelan-dhcpd/server.h"

namespace {

using Clock = std::chrono::steady_clock;

// A start takes milliseconds; this long only where something hangs.
constexpr std::chrono::seconds START_LIMIT{10};
// How long the end of a process may come behind its last word.
constexpr int LAST_WORD_MILLISECONDS = 1000;

// The text as a file without a name, to be read from its begin.
FileDescriptor FileOf(const std::string &text) {
    FileDescriptor file(memfd_create("dnsmasq.conf", MFD_CLOEXEC));
    if (!file || write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        lseek(file.get(), 0, SEEK_SET) != 0) {
        Complain("configuration of dnsmasq: %s", strerror(errno));
        return {};
    }
    return file;
}

// Its standard input is its configuration, its standard output the lease file, which it opens by the name of
// that descriptor: it needs no way through the folders above, and finds no other file there. It stays in the
// foreground, as a start in the background forks twice and has nobody know the process id; it leaves its
// standard error once it is up.
[[noreturn]] void Execute(const ServerStart &start, int configuration, int words, const OwnUser &user) {
    const char *vector[] = {start.program, "--keep-in-foreground", "--conf-file=-",
                            "--dhcp-leasefile=/proc/self/fd/1", nullptr};
    setsid();
    if (dup2(words, STDERR_FILENO) >= 0 && dup2(start.leaseFile.get(), STDOUT_FILENO) >= 0 &&
        Namespace_Enter(start.space) && Powerless_Become(user) && dup2(configuration, STDIN_FILENO) >= 0) {
        signal(SIGPIPE, SIG_DFL);
        execv(start.program, const_cast<char **>(vector));
        Complain("%s: %s", start.program, strerror(errno));
    }
    _exit(EXIT_FAILURE);
}

// Passes on what the server says until it leaves its standard error. False when it does not, or says more
// than any server does.
bool TakeWords(int pipe, std::string *words) {
    constexpr size_t MOST = 65536;
    Clock::time_point end = Clock::now() + START_LIMIT;
    std::array<char, 1024> block;
    for (;;) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd waiting = {pipe, POLLIN, 0};
        if (left <= 0 || words->size() > MOST) {
            return false;
        }
        if (poll(&waiting, 1, static_cast<int>(left)) <= 0) {
            continue;
        }
        ssize_t size = read(pipe, block.data(), block.size());
        if (size == 0) {
            return true;
        }
        words->append(block.data(), size > 0 ? static_cast<size_t>(size) : 0);
    }
}

// Before it executes the server the child speaks under this program's name.
void PassOn(std::string_view words) {
    const std::string own = std::string(program_invocation_short_name) + " - ";
    std::string_view line;
    while (Text_TakeLine(&words, &line)) {
        line.remove_prefix(line.starts_with(own) ? own.size() : 0);
        if (!line.empty()) {
            Complain("%.*s", static_cast<int>(line.size()), line.data());
        }
    }
}

// Whether the child still lives; one that has said something gets time to end.
bool Lives(pid_t child, bool hasSpoken) {
    FileDescriptor process(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
    pollfd end = {process.get(), POLLIN, 0};
    return process && poll(&end, 1, hasSpoken ? LAST_WORD_MILLISECONDS : 0) == 0;
}

}  // namespace

pid_t Server_StartDnsmasq(const ServerStart &start, const std::string &configuration, const OwnUser &user) {
    FileDescriptor file = FileOf(configuration);
    int ends[2] = {-1, -1};
    if (!file || pipe2(ends, O_CLOEXEC) != 0) {
        return 0;
    }
    FileDescriptor reading(ends[0]);
    FileDescriptor writing(ends[1]);
    pid_t child = fork();
    if (child == 0) {
        Execute(start, file.get(), writing.get(), user);
    }
    writing.reset();
    std::string words;
    bool left = child > 0 && TakeWords(reading.get(), &words);
    PassOn(words);
    if (left && Lives(child, !words.empty())) {
        return child;
    }
    if (child > 0) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    Complain("dnsmasq does not serve %s with %s", start.name, start.configuration);
    return 0;
}
