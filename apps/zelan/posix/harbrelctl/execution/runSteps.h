// Carrying steps out.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "apps/zelan/posix/harbrelctl/plan/plan.h"

struct StepReport {
    bool done = false;
    std::string reason = {};  // of a failure
    std::string kept = {};    // the path of a file that is none of ours, in the folder of a removed network
};
// Called after each step.
using TellStep = std::function<void(const Step &step, const StepReport &report)>;

// All of them in their order. One that fails takes the later ones of the same service with it, and of a
// removal all of the network; those are not called. True when all were done.
bool RunSteps(const Host &host, const std::vector<Step> &steps, const TellStep &tell);
