// Running programs from tests: every command has a deadline and every wait a condition.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

// The leak check of a sanitizer build cannot work on a traced process.
inline constexpr char STRACE[] = "env ASAN_OPTIONS=detect_leaks=0 strace ";

// Deadlines, given ones too, are those of ordinary hardware; the build's HARBREL_TEST_PATIENCE multiplies
// them.
inline constexpr std::chrono::milliseconds COMMAND_DEADLINE{20000};
inline constexpr std::chrono::milliseconds CONDITION_DEADLINE{10000};

struct CommandResult {
    // The exit status; 128 and the signal when killed by one; 127 when the program could not be executed.
    int status = -1;
    bool timedOut = false;
    // Standard output and standard error. A daemon that the command leaves behind must not hold them open.
    std::string output;
    std::string errors;

    bool Succeeded() const { return status == 0 && !timedOut; }
};

// So that a failed EXPECT_TRUE(result.Succeeded()) << result says what happened.
std::ostream &operator<<(std::ostream &stream, const CommandResult &result);

// Runs a program, found through PATH, with its input empty, to its end; at the deadline it is killed.
CommandResult RunCommand(const std::vector<std::string> &arguments,
                         std::chrono::milliseconds deadline = COMMAND_DEADLINE);

// Runs a line of shell the same way.
CommandResult RunShell(const std::string &line, std::chrono::milliseconds deadline = COMMAND_DEADLINE);

// Asks until the condition holds or the deadline has passed, and returns whether it holds.
bool WaitUntil(const std::function<bool()> &condition,
               std::chrono::milliseconds deadline = CONDITION_DEADLINE);

// A program that runs beside the test and is killed and reaped with this object. What it prints goes to
// outputFile, or nowhere when that is empty.
class BackgroundCommand {
  public:
    explicit BackgroundCommand(const std::vector<std::string> &arguments, const std::string &outputFile = "");
    BackgroundCommand(BackgroundCommand &&) = delete;
    ~BackgroundCommand();

    // Waits for the program's own end; its exit status as in CommandResult, -1 at the deadline.
    int Wait(std::chrono::milliseconds deadline = COMMAND_DEADLINE);
    pid_t pid() const { return pid_; }

  private:
    pid_t pid_ = -1;
};

std::string ProgramPath(const std::string &name);  // of this build

// The whole file; empty when it cannot be read.
std::string ReadFileText(const std::string &path);

// Replaces the file's content; fails the running test when that does not work.
void WriteFileText(const std::string &path, const std::string &text);

// From now on this process and all that it starts get the error (an errno value) from the call (SYS_), or
// only from the form of it whose first argument is `form`. False when that cannot be arranged.
bool RefuseCall(int call, int error, int form = -1);
