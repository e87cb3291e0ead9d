#include "tests/support/daemonStart.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <ostream>

#include "lib/misc/owners.h"
#include "tests/support/command.h"

namespace {

constexpr int START_DEADLINE_MILLISECONDS = 10000;

[[noreturn]] void Execute(const std::string &path, std::vector<std::string> arguments, int status,
                          const std::string &logFile) {
    int log = open(logFile.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    dup2(log, 1);
    dup2(log, 2);
    close(log);
    fcntl(status, F_SETFD, 0);
    std::vector<char *> vector = {const_cast<char *>(path.c_str())};
    for (std::string &argument : arguments) {
        if (argument == "{W}") {
            argument = std::to_string(status);
        }
        vector.push_back(argument.data());
    }
    vector.push_back(nullptr);
    execv(path.c_str(), vector.data());
    _exit(127);
}

// Everything up to the end of the pipe, which comes when its last holder lets go.
std::string ReadToEnd(int reader) {
    std::string text;
    char block[64];
    pollfd ready = {reader, POLLIN, 0};
    while (poll(&ready, 1, START_DEADLINE_MILLISECONDS) > 0) {
        ssize_t size = read(reader, block, sizeof block);
        if (size <= 0) {
            return text;
        }
        text.append(block, static_cast<size_t>(size));
    }
    ADD_FAILURE() << "the status pipe is still held open";
    return text;
}

}  // namespace

std::string DaemonStart::Log() const {
    return ReadFileText(logFile);
}

std::ostream &operator<<(std::ostream &stream, const DaemonStart &start) {
    return stream << "status " << start.status << ", report of " << start.report.size() << " bytes, pid "
                  << start.pid << ", log:\n"
                  << start.Log();
}

DaemonStart StartDaemon(const std::string &program, const std::string &name,
                        const std::vector<std::string> &arguments) {
    std::string pidFile = "/var/run/" + name + ".pid";
    std::vector<std::string> all = {"-s", "{W}", "-d", pidFile};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return StartDaemonWith(program, pidFile, all);
}

DaemonStart StartDaemonWith(const std::string &program, const std::string &pidFile,
                            const std::vector<std::string> &arguments) {
    DaemonStart start;
    start.pidFile = pidFile;
    start.logFile = "/var/log/" + program + ".log";
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        ADD_FAILURE() << "pipe";
        return start;
    }
    FileDescriptor reader(ends[0]);
    FileDescriptor writer(ends[1]);
    pid_t child = fork();
    if (child == 0) {
        Execute(ProgramPath(program), arguments, writer.get(), start.logFile);
    }
    writer.reset();
    start.report = ReadToEnd(reader.get());
    int waitStatus = 0;
    waitpid(child, &waitStatus, 0);
    start.status = WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : 128 + WTERMSIG(waitStatus);
    start.pid = static_cast<pid_t>(strtol(ReadFileText(pidFile).c_str(), nullptr, 10));
    return start;
}

void KillDaemon(const DaemonStart &start) {
    EXPECT_GT(start.pid, 0);
    if (start.pid > 0) {
        EXPECT_EQ(0, kill(start.pid, SIGKILL)) << start.pid;
    }
    unlink(start.pidFile.c_str());
}

DaemonStart StartNetifup(int network) {
    constexpr unsigned ZELAN_MAJOR = 119;
    std::string name = "zelan" + std::to_string(network);
    mknod(("/dev/" + name).c_str(), S_IFCHR | 0600, makedev(ZELAN_MAJOR, static_cast<unsigned>(network)));
    return StartDaemon("zelan-netifup", "zelan-netifup-" + name, {"/dev/" + name, name});
}
