// Second processes of a test, forked from it.
#pragma once

#include <gtest/gtest.h>
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
        int commands[2], results[2];
        EXPECT_EQ(0, pipe(commands));
        EXPECT_EQ(0, pipe(results));
        pid_ = fork();
        if (pid_ == 0) {
            close(commands[1]);
            close(results[0]);
            Serve(actions, commands[0], results[1]);
        }
        close(commands[0]);
        close(results[1]);
        commands_ = commands[1];
        results_ = results[0];
    }
    ~OtherProcess() {
        close(commands_);
        close(results_);
        waitpid(pid_, nullptr, 0);
    }
    OtherProcess(OtherProcess &&) = delete;

    // Runs the action of that index there and gives its result.
    bool Do(unsigned char action) {
        bool result = false;
        EXPECT_EQ(1, write(commands_, &action, 1));
        EXPECT_EQ(1, read(results_, &result, 1)) << "the other process has died";
        return result;
    }

  private:
    [[noreturn]] static void Serve(const std::vector<Action> &actions, int commands, int results) {
        unsigned char action = 0;
        while (read(commands, &action, 1) == 1) {
            const bool result = actions[action]();
            if (write(results, &result, 1) != 1) {
                break;
            }
        }
        _exit(0);
    }

    pid_t pid_ = -1;
    int commands_ = -1;
    int results_ = -1;
};
