// What is known about subnets in this process: those configured at the first need, and the candidates in
// their random order. Nothing here is written to disk or refreshed when the database changes.
#pragma once

#include <cstdint>
#include <mutex>

#include "lib/harbrel/base/services.h"

constexpr uint32_t HBL_MAX_SUBNET_CANDIDATES = 512;

// An address in host order and whether it has been offered or found busy.
struct SubnetCandidate {
    uint32_t address;
    int32_t probed;
};

struct SubnetTables {
    bool configuredFilled = false;
    int32_t configuredCount = 0;
    uint32_t configured[HBL_NUM_VNETS] = {};  // a vnet has at most one subnet

    bool candidatesBuilt = false;
    int32_t candidateCount = 0;
    int32_t cursor = 0;  // how far the walk has come; it only moves forward
    SubnetCandidate candidates[HBL_MAX_SUBNET_CANDIDATES] = {};
};

// The process's own tables, filled by whichever function needs them first.
SubnetTables &HBLSubnetTables();
// Held while those are used: several threads may look for a subnet, none of which gets another's candidate,
// while one takes a network's subnet away. The functions below leave it to their callers.
std::mutex &HBLSubnetTablesGuard();

void HBLLoadConfiguredSubnets(SubnetTables &tables);
bool HBLSubnetIsConfigured(SubnetTables &tables, uint32_t address);
void HBLBuildSubnetCandidates(SubnetTables &tables);
// The next candidate that was not probed yet, flagged as probed now; false when the table is used up.
bool HBLTakeSubnetCandidate(SubnetTables &tables, uint32_t *address);
