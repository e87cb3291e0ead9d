// What has to be done to get from one state to another. Pure: made from two states, carried out elsewhere.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "apps/zelan/posix/harbrelctl/model/links.h"
#include "apps/zelan/posix/harbrelctl/plan/records.h"

struct FileChange {
    std::string path;
    std::string before;  // empty when there is none
    std::string after;   // empty when it goes
    bool operator==(const FileChange &) const = default;
};
// Which of a network's generated files have to be written anew.
struct StaleFiles {
    bool dhcp = false;
    bool nat = false;
};

enum StepKind {
    STEP_STOP,   // kills the daemon, or takes the adapter down
    STEP_WRITE,  // the service's file from the records, or removes it
    STEP_START,
    STEP_REMOVE,  // takes the whole network out of the configuration
    STEP_NODE,    // makes the device node
};
struct Step {
    StepKind kind = STEP_STOP;
    int network = 0;
    Service service = SERVICE_BRIDGE;  // not of STEP_REMOVE and STEP_NODE
    bool operator==(const Step &) const = default;
};

struct Plan {
    std::string state;          // StateHash of what it was made for
    std::vector<int> networks;  // that it is about
    std::vector<RecordChange> changes;
    std::vector<FileChange> files;
    std::vector<Step> steps;
    bool IsEmpty() const { return changes.empty() && files.empty() && steps.empty(); }
    bool operator==(const Plan &) const = default;
};

// What a network's services should come to.
enum Aim {
    AIM_FOLLOW,  // what runs follows the settings, a network that is stopped stays so
    AIM_RUN,     // all that is configured runs
    AIM_STOP,
    AIM_RESTART,  // all that is configured, afresh
    AIM_FILES,    // the database alone
};

struct NetworkAim {
    int network = 0;
    Aim aim = AIM_FOLLOW;
    StaleFiles stale;
    bool nodeMissing = false;  // the device node
    // Running with settings from before the present ones, by Service.
    std::array<bool, SERVICE_COUNT> outdated = {};
};

// `host` is as it is now, `after` what will be configured. A step is there only for what is not right
// already.
std::vector<Step> MakeSteps(const Host &host, const KernelView &kernel, const Config &after,
                            const std::vector<NetworkAim> &aims);

// The steps that stop and take out a network.
std::vector<Step> RemovalSteps(const Host &host, int network);

// "stop dhcp on zelan8".
std::string StepText(const Step &step);

// A unified difference of two texts with three lines around each change; empty when they are equal.
std::string UnifiedDiff(const FileChange &change);

// One JSON object; reading back gives nothing for a text that is no plan.
std::string PlanJson(const Plan &plan);
std::optional<Plan> ReadPlanJson(const std::string &text);
// The same for changes alone.
std::string ChangesJson(const std::vector<RecordChange> &changes);
std::optional<std::vector<RecordChange>> ReadChangesJson(const std::string &text);
