#include "daemons/zelan-dhcpd/server.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
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

namespace {

using Clock = std::chrono::steady_clock;

// A start takes milliseconds; this long only where something hangs, or where hundreds of starts share a slow
// disk.
constexpr std::chrono::seconds START_LIMIT{30};
// How often a file is looked at that nothing announces a change of.
constexpr int LOOK_MILLISECONDS = 2;
// How long the end of a process may come behind its last word.
constexpr int LAST_WORD_MILLISECONDS = 1000;

const char *FindFirst(const char *const (&places)[3]) {
    for (const char *place : places) {
        if (access(place, X_OK) == 0) {
            return place;
        }
    }
    return nullptr;
}

const char *NameOf(const char *program) {
    return strrchr(program, '/') + 1;
}

// Puts a file in the place of a standard descriptor; an empty one leaves it.
bool Place(const FileDescriptor &file, int descriptor) {
    return !file || dup2(file.get(), descriptor) >= 0;
}

[[noreturn]] void Execute(const ServerStart &start, const Server &server, const FileDescriptor &words) {
    std::vector<char *> vector = {const_cast<char *>(start.program)};
    for (const std::string &argument : server.arguments) {
        vector.push_back(const_cast<char *>(argument.c_str()));
    }
    vector.push_back(nullptr);
    if (Place(words, STDERR_FILENO) && Place(server.output, STDOUT_FILENO) &&
        Place(server.input, STDIN_FILENO) && Namespace_Enter(start.space) && server.confine()) {
        signal(SIGPIPE, SIG_DFL);
        execv(start.program, vector.data());
        Complain("%s: %s", start.program, strerror(errno));
    }
    _exit(EXIT_FAILURE);
}

bool HasContent(const FileDescriptor &file) {
    struct stat status = {};
    return fstat(file.get(), &status) == 0 && status.st_size > 0;
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

// Passes on what the server has said: false when it has left its standard error. The begin of a line stays in
// `words` until its end is there, unless it is longer than any server's.
bool TakeWords(const FileDescriptor &pipe, std::string *words) {
    constexpr size_t LONGEST = 65536;
    std::array<char, 1024> block;
    const ssize_t size = read(pipe.get(), block.data(), block.size());
    if (size == 0) {
        PassOn(*words);
        return false;
    }
    words->append(block.data(), size > 0 ? static_cast<size_t>(size) : 0);
    const size_t whole = words->size() > LONGEST ? words->size() : words->rfind('\n') + 1;
    PassOn(std::string_view(*words).substr(0, whole));
    words->erase(0, whole);
    return true;
}

// Waits for the server's sign. False when it ends without, or gives none in time.
bool AwaitSign(const Server &server, const FileDescriptor &pipe, bool *hasSpoken) {
    const Clock::time_point end = Clock::now() + START_LIMIT;
    const bool writes = server.sign == ServerSign::WRITES_STANDARD_OUTPUT;
    std::string words;
    while (Clock::now() < end) {
        // Before the last look for words, so that none is missed.
        const bool isUp = writes && HasContent(server.output);
        pollfd waiting = {pipe.get(), POLLIN, 0};
        if (poll(&waiting, 1, isUp ? 0 : LOOK_MILLISECONDS) <= 0) {
            if (isUp) {
                return true;
            }
            continue;
        }
        if (!TakeWords(pipe, &words)) {
            return !writes;
        }
        *hasSpoken = true;
    }
    return false;
}

// Whether the child still lives when that time has passed.
bool Lives(pid_t child, int milliseconds) {
    FileDescriptor process(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
    pollfd end = {process.get(), POLLIN, 0};
    return process && poll(&end, 1, milliseconds) == 0;
}

bool AwaitService(const Server &server, pid_t process, const FileDescriptor &pipe) {
    bool hasSpoken = false;
    const bool hasSign = AwaitSign(server, pipe, &hasSpoken);
    // The end of a process looks like its leaving standard error; one that has spoken gets time for it.
    const bool mayEnd = server.sign == ServerSign::LEAVES_STANDARD_ERROR && hasSpoken;
    return hasSign && Lives(process, mayEnd ? LAST_WORD_MILLISECONDS : 0);
}

}  // namespace

const char *Server_FindDnsmasq() {
    return FindFirst({"/usr/sbin/dnsmasq", "/usr/local/sbin/dnsmasq", "/usr/bin/dnsmasq"});
}

const char *Server_FindDhcpd() {
    return FindFirst({"/usr/sbin/dhcpd", "/usr/local/sbin/dhcpd", "/usr/bin/dhcpd"});
}

bool Server_Start(const ServerStart &start, const Server &server, DaemonContract *contract,
                  const CleanUp &cleanUp) {
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0) {
        Complain("pipe: %s", strerror(errno));
        return false;
    }
    FileDescriptor reading(ends[0]);
    FileDescriptor writing(ends[1]);
    pid_t process = Daemon_Fork(contract);
    if (process == 0) {
        Execute(start, server, writing);
    }
    writing.reset();
    if (process < 0 || !Daemon_LetGo(contract, process, cleanUp)) {
        return false;
    }
    if (!AwaitService(server, process, reading)) {
        Daemon_End(*contract, process);
        Complain("%s does not serve %s with %s", NameOf(start.program), start.name,
                 start.configuration.c_str());
        if (server.hint != nullptr) {
            server.hint();
        }
        return false;
    }
    return true;
}
