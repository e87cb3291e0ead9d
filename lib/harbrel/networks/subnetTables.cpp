#include "lib/harbrel/networks/subnetTables.h"

#include <algorithm>
#include <span>
#include <utility>

#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/networks/subnets.h"
#include "lib/misc/random.h"

namespace {

// 192.168.0.0 and 172.16.0.0: each holds 256 candidates of 256 addresses.
constexpr uint32_t PRIVATE_RANGES[] = {0xC0A80000U, 0xAC100000U};
constexpr uint32_t SUBNETS_PER_RANGE = 256;
constexpr uint32_t ADDRESSES_PER_SUBNET = 256;

void HBLShuffleSubnetCandidates(SubnetTables &tables) {
    const uint32_t count = static_cast<uint32_t>(tables.candidateCount);
    // Outside the loop: when the random source fails a number keeps what it held.
    uint32_t first = 0;
    uint32_t second = 0;
    for (uint32_t swap = 0; swap < 2 * count; swap++) {
        static_cast<void>(Random_Crypto(sizeof first, &first));
        static_cast<void>(Random_Crypto(sizeof second, &second));
        std::swap(tables.candidates[first % count], tables.candidates[second % count]);
    }
}

}  // namespace

SubnetTables &HBLSubnetTables() {
    static SubnetTables tables;
    return tables;
}

std::mutex &HBLSubnetTablesGuard() {
    static std::mutex guard;
    return guard;
}

void HBLLoadConfiguredSubnets(SubnetTables &tables) {
    if (tables.configuredFilled) {
        return;
    }
    for (uint32_t vnet = 0; vnet < HBL_NUM_VNETS; vnet++) {
        uint32_t address = 0;
        if (HBLGetHostOnlySubnet(vnet, &address)) {
            tables.configured[tables.configuredCount++] = address;
        }
    }
    tables.configuredFilled = true;
}

bool HBLSubnetIsConfigured(SubnetTables &tables, uint32_t address) {
    HBLLoadConfiguredSubnets(tables);
    const std::span known(tables.configured, static_cast<size_t>(tables.configuredCount));
    return std::ranges::find(known, address) != known.end();
}

void HBLBuildSubnetCandidates(SubnetTables &tables) {
    if (tables.candidatesBuilt) {
        return;
    }
    for (uint32_t i = 0; i < SUBNETS_PER_RANGE; i++) {
        for (const uint32_t range : PRIVATE_RANGES) {
            const uint32_t address = range + i * ADDRESSES_PER_SUBNET;
            if (!HBLSubnetIsConfigured(tables, address)) {
                tables.candidates[tables.candidateCount++] = {.address = address, .probed = 0};
            }
        }
    }
    tables.candidatesBuilt = true;
    HBLShuffleSubnetCandidates(tables);
}

bool HBLTakeSubnetCandidate(SubnetTables &tables, uint32_t *address) {
    while (tables.cursor < tables.candidateCount) {
        SubnetCandidate &candidate = tables.candidates[tables.cursor++];
        if (candidate.probed == 0) {
            candidate.probed = 1;
            *address = candidate.address;
            return true;
        }
    }
    return false;
}

void HBLMarkSubnetProbed(const char *subnet, int flag) {
    const std::lock_guard hold(HBLSubnetTablesGuard());
    SubnetTables &tables = HBLSubnetTables();
    HBLBuildSubnetCandidates(tables);
    uint32_t address = 0;
    if (!HBLIPStr2Int(subnet, &address)) {
        return;
    }
    for (int32_t i = 0; i < tables.candidateCount; i++) {
        if (tables.candidates[i].address == address) {
            tables.candidates[i].probed = flag;
        }
    }
}
