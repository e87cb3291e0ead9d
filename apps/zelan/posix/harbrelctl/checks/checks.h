// Whether settings fit each other and what surrounds them. Pure functions: nothing is read, nothing written.
#pragma once

#include <string>
#include <vector>

#include "apps/zelan/posix/harbrelctl/model/surroundings.h"

enum ProblemKind {
    PROBLEM_VALUE,     // wrong in itself, or against another value of its network
    PROBLEM_CONFLICT,  // somebody else has it: a subnet, a port, a name
};

struct Problem {
    const char *code = "";  // stable, for programs
    ProblemKind kind = PROBLEM_VALUE;
    int network = NO_NETWORK;
    std::string text;  // what is wrong and what is allowed
    bool operator==(const Problem &) const = default;
};
using Problems = std::vector<Problem>;

// Of one network against itself, the others and the surroundings, the graver ones first.
Problems CheckNetwork(const Config &config, int network, const Surroundings &surroundings);

// Those of all the networks that stand in `after` and not in `before`: a network that is wrong already may be
// changed all the same.
Problems NewProblems(const Config &before, const Config &after, const std::vector<int> &networks,
                     const Surroundings &surroundings);

// The parts, for those who want one alone.
void CheckSubnet(const NetworkConfig &settings, int network, Problems *problems);
void CheckOverlaps(const Config &config, int network, const Surroundings &surroundings, Problems *problems);
void CheckAddresses(const NetworkConfig &settings, int network, Problems *problems);
void CheckPlainValues(const NetworkConfig &settings, int network, Problems *problems);
void CheckReservations(const NetworkConfig &settings, int network, Problems *problems);
void CheckForwards(const Config &config, int network, const Surroundings &surroundings, Problems *problems);
