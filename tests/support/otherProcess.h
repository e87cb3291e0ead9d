// Second processes of a test, forked from it.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <vector>

// A process that runs the body; EndsWell says whether that was true.
inline pid_t StartChild(const std::function<bool()> &body) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(body() ? 0 : 1);
    }
    return child;
}

// Waits for the process's end.
inline bool EndsWell(pid_t child) {
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0;
}

// A process beside the test, forked while no library is loaded, that does one action at a time as told.
class OtherProcess {
  public:
    using Action = std::function<bool()>;

    explicit OtherProcess(std::vector<Action> actions) {
        int ends[2];
        EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends));
        process_ = StartChild([&] {
            close(ends[0]);
            for (unsigned char action = 0; recv(ends[1], &action, 1, 0) == 1;) {
                const bool result = actions[action]();
                send(ends[1], &result, sizeof result, MSG_NOSIGNAL);
            }
            return true;
        });
        close(ends[1]);
        end_ = ends[0];
    }
    ~OtherProcess() {
        close(end_);
        EndsWell(process_);
    }
    OtherProcess(OtherProcess &&) = delete;

    // Runs the action of that index there and gives its result.
    bool Do(unsigned char action) {
        bool result = false;
        EXPECT_EQ(1, send(end_, &action, 1, MSG_NOSIGNAL));
        EXPECT_EQ(1, recv(end_, &result, sizeof result, 0)) << "the other process has died";
        return result;
    }

  private:
    pid_t process_ = -1;
    int end_ = -1;
};
