#include "tests/support/command.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>

#include "lib/misc/owners.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr int POLL_MILLISECONDS = 5;

int MillisecondsLeft(Clock::time_point end) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

int ExitStatus(int waitStatus) {
    return WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : 128 + WTERMSIG(waitStatus);
}

[[noreturn]] void ExecuteInChild(const std::vector<std::string> &arguments, int output, int errors) {
    int nothing = open("/dev/null", O_RDWR);
    dup2(nothing, 0);
    dup2(output >= 0 ? output : nothing, 1);
    dup2(errors >= 0 ? errors : nothing, 2);
    if (nothing > 2) {
        close(nothing);
    }
    std::vector<char *> vector;
    for (const std::string &argument : arguments) {
        vector.push_back(const_cast<char *>(argument.c_str()));
    }
    vector.push_back(nullptr);
    execvp(vector[0], vector.data());
    dprintf(2, "%s: %s\n", vector[0], strerror(errno));
    _exit(127);
}

struct Pipe {
    FileDescriptor reader, writer;
};

Pipe MakePipe() {
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0) {
        ADD_FAILURE() << "pipe: " << strerror(errno);
    }
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

// Takes what one stream has ready; false at its end.
bool TakeReady(int stream, std::string *text) {
    std::array<char, 65536> block;
    ssize_t got = read(stream, block.data(), block.size());
    if (got > 0) {
        text->append(block.data(), static_cast<size_t>(got));
    }
    return got > 0 || (got < 0 && errno == EINTR);
}

// Collects both streams until both have ended; false when the deadline comes first.
bool Collect(int output, int errors, Clock::time_point end, CommandResult *result) {
    std::array<pollfd, 2> streams = {{{output, POLLIN, 0}, {errors, POLLIN, 0}}};
    std::array<std::string *, 2> texts = {&result->output, &result->errors};
    while (streams[0].fd >= 0 || streams[1].fd >= 0) {
        int ready = poll(streams.data(), streams.size(), MillisecondsLeft(end));
        if (ready == 0) {
            return false;
        }
        for (size_t i = 0; ready > 0 && i < streams.size(); i++) {
            if (streams[i].fd >= 0 && streams[i].revents != 0 && !TakeReady(streams[i].fd, texts[i])) {
                streams[i].fd = -1;
            }
        }
    }
    return true;
}

// The wait status of a child that ends before the deadline; false when it does not.
bool WaitForEnd(pid_t child, Clock::time_point end, int *waitStatus) {
    while (waitpid(child, waitStatus, WNOHANG) != child) {
        if (Clock::now() >= end) {
            return false;
        }
        poll(nullptr, 0, POLL_MILLISECONDS);
    }
    return true;
}

}  // namespace

std::ostream &operator<<(std::ostream &stream, const CommandResult &result) {
    return stream << "status " << result.status << (result.timedOut ? " (deadline passed)" : "")
                  << "\noutput: " << result.output << "\nerrors: " << result.errors;
}

CommandResult RunCommand(const std::vector<std::string> &arguments, std::chrono::milliseconds deadline) {
    Clock::time_point end = Clock::now() + deadline * HARBREL_TEST_PATIENCE;
    Pipe output = MakePipe();
    Pipe errors = MakePipe();
    pid_t child = fork();
    if (child == 0) {
        ExecuteInChild(arguments, output.writer.get(), errors.writer.get());
    }
    output.writer.reset();
    errors.writer.reset();

    CommandResult result;
    int waitStatus = 0;
    if (!Collect(output.reader.get(), errors.reader.get(), end, &result) ||
        !WaitForEnd(child, end, &waitStatus)) {
        result.timedOut = true;
        kill(child, SIGKILL);
        waitpid(child, &waitStatus, 0);
    }
    result.status = ExitStatus(waitStatus);
    return result;
}

CommandResult RunShell(const std::string &line, std::chrono::milliseconds deadline) {
    return RunCommand({"sh", "-c", line}, deadline);
}

bool WaitUntil(const std::function<bool()> &condition, std::chrono::milliseconds deadline) {
    Clock::time_point end = Clock::now() + deadline * HARBREL_TEST_PATIENCE;
    while (!condition()) {
        if (Clock::now() >= end) {
            return condition();
        }
        poll(nullptr, 0, POLL_MILLISECONDS);
    }
    return true;
}

BackgroundCommand::BackgroundCommand(const std::vector<std::string> &arguments,
                                     const std::string &outputFile) {
    FileDescriptor output;
    if (!outputFile.empty()) {
        output.reset(open(outputFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    }
    pid_ = fork();
    if (pid_ == 0) {
        ExecuteInChild(arguments, output.get(), output.get());
    }
}

BackgroundCommand::~BackgroundCommand() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

int BackgroundCommand::Wait(std::chrono::milliseconds deadline) {
    int waitStatus = 0;
    if (pid_ <= 0 || !WaitForEnd(pid_, Clock::now() + deadline * HARBREL_TEST_PATIENCE, &waitStatus)) {
        return -1;
    }
    pid_ = -1;
    return ExitStatus(waitStatus);
}

std::string ProgramPath(const std::string &name) {
    return HARBREL_BIN_DIR "/" + name;
}

std::string ReadFileText(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void WriteFileText(const std::string &path, const std::string &text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.flush();
    EXPECT_TRUE(file.good()) << path;
}

bool RefuseCall(int call, int error, int form) {
    const uint16_t compare = form < 0 ? BPF_JGE : BPF_JEQ;
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(call), 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args)),
        BPF_JUMP(BPF_JMP | compare | BPF_K, static_cast<uint32_t>(std::max(form, 0)), 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<uint32_t>(error)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program = {sizeof filter / sizeof filter[0], filter};
    return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}
