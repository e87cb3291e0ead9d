// Disturbing the tool at chosen system calls: each moment is a run of its own on a fresh private host, with
// strace(1) failing or killing the tool at the Nth call of a kind. Many hosts run beside each other.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/support/command.h"
#include "tests/support/tempFolder.h"

// A command to disturb and what its host holds before.
struct Scenario {
    std::string name;
    std::string arguments;  // of the tool, as shell words
    std::string settings;   // records of the database that was installed before; none when empty
    bool daemonsRun = false;
    int status = 0;                   // of the undisturbed command
    bool mayLeaveNoDatabase = false;  // when it fails
    bool changesNothing = false;      // in the records, whether it fails or not
    int randomKills = 60;
};

// For the test runner's words.
void PrintTo(const Scenario &scenario, std::ostream *stream);

// What one host showed. The databases are in the tool's own order, with subnets and hashes made alike.
struct Outcome {
    std::string moment;       // as in "write.17"
    std::string hit;          // the call as traced; empty when it did not come
    CommandResult disturbed;  // status 137 when killed, 124 at its deadline
    bool databaseLeft = false;
    CommandResult next;      // the run after it
    std::string database;    // after that
    std::string files;       // names in the configuration folder and in /tmp at the end
    std::string unreadable;  // lines of the log about records that it could not read
};

// For each kind of system call what is done to it, as strace's inject option takes it: "error=EIO".
using Injections = std::map<std::string, std::string>;

class Moments {
  public:
    explicit Moments(const Scenario &scenario);

    // How often the undisturbed tool makes each kind of call, and the database it leaves.
    const std::map<std::string, int> &calls() const { return calls_; }
    const std::string &twin() const { return twin_; }

    // Disturbs the command at up to `most` moments of each kind: the first ones, the last ones, and some
    // between. With a path only the calls on that count, and it is the first `most`. Behind each run comes
    // `next`, as shell words for the tool.
    std::vector<Outcome> Disturb(const Injections &injections, int most, const std::string &next,
                                 const std::string &path = "") const;
    // Kills the command at `moments` of all its calls, drawn at random; an outcome's moment tells which call.
    std::vector<Outcome> KillAtRandom(int moments, const std::string &next) const;

  private:
    // The options of strace for each moment.
    using Plan = std::map<std::string, std::string>;
    std::vector<Outcome> Run(const Plan &plan, const std::string &next) const;
    std::string Script(const std::string &folder, const std::string &trace, const std::string &next) const;

    Scenario scenario_;
    TempFolder folder_;
    std::map<std::string, int> calls_;
    std::string twin_;
};
