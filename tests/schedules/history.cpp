#include "tests/schedules/history.h"

#include <algorithm>
#include <limits>
#include <map>

namespace {

constexpr int64_t ALWAYS = std::numeric_limits<int64_t>::min();

// A value's write and its reads. Between the first end and the last begin, if they stand in this order, the
// place had this value; else it had it at some moment between the two.
struct Cluster {
    uint32_t value = NO_VALUE;
    int64_t written = ALWAYS;  // when its write began, and ended
    int64_t acknowledged = ALWAYS;
    int64_t firstEnd = std::numeric_limits<int64_t>::max();
    int64_t lastBegin = ALWAYS;

    bool Lasted() const { return firstEnd < lastBegin; }
};

void Take(const Operation &operation, Cluster *cluster) {
    cluster->value = operation.value;
    if (operation.isWrite) {
        cluster->written = operation.begin;
        cluster->acknowledged = operation.end;
    }
    cluster->firstEnd = std::min(cluster->firstEnd, operation.end);
    cluster->lastBegin = std::max(cluster->lastBegin, operation.begin);
}

std::string Text(uint32_t value) {
    return "value " + std::to_string(value);
}

// A change without the lock is a line that removes and a line that adds; who reads between them finds
// nothing.
bool IsBeingReplaced(const Operation &read, const std::vector<Operation> &operations) {
    return std::ranges::any_of(operations, [&read](const Operation &operation) {
        return operation.isWrite && operation.begin < read.end && read.begin < operation.end;
    });
}

// Each write with its reads; the reason when one of those cannot be.
std::string MakeClusters(const std::vector<Operation> &operations, bool takesLock,
                         std::map<uint32_t, Cluster> *clusters) {
    Take({0, true, FIRST_VALUE, ALWAYS, ALWAYS}, &(*clusters)[FIRST_VALUE]);
    for (const Operation &operation : operations) {
        if (operation.isWrite) {
            Take(operation, &(*clusters)[operation.value]);
        }
    }
    for (const Operation &operation : operations) {
        const auto cluster = clusters->find(operation.value);
        if (operation.isWrite ||
            (!takesLock && operation.value == NO_VALUE && IsBeingReplaced(operation, operations))) {
            continue;
        }
        if (cluster == clusters->end()) {
            return operation.value == NO_VALUE ? "nothing is found"
                                               : Text(operation.value) + " was refused and is found";
        }
        if (operation.end < cluster->second.written) {
            return Text(operation.value) + " is found before it is written";
        }
        // A change without the lock that meets a rewrite may be found in the file, and then be made again.
        if (takesLock || operation.begin >= cluster->second.acknowledged) {
            Take(operation, &cluster->second);
        }
    }
    return "";
}

}  // namespace

// A place has one value at a time: two that lasted never overlap, and none comes and goes while another
// lasts. With values that are written once these two conditions are also enough.
std::string WhyImpossible(const std::vector<Operation> &operations, bool takesLock) {
    std::map<uint32_t, Cluster> clusters;
    const std::string reason = MakeClusters(operations, takesLock, &clusters);
    if (!reason.empty()) {
        return reason;
    }
    std::map<int64_t, Cluster> lasting;  // by their start
    for (const auto &[value, cluster] : clusters) {
        if (cluster.Lasted() && !lasting.emplace(cluster.firstEnd, cluster).second) {
            return Text(value) + " and " + Text(lasting[cluster.firstEnd].value) + " are there at once";
        }
    }
    const Cluster *former = nullptr;
    for (const auto &[start, cluster] : lasting) {
        if (former != nullptr && start < former->lastBegin) {
            return Text(former->value) + " is found again after " + Text(cluster.value);
        }
        former = &cluster;
    }
    for (const auto &[value, cluster] : clusters) {
        const auto next = lasting.lower_bound(cluster.lastBegin);
        if (!cluster.Lasted() && next != lasting.begin() &&
            cluster.firstEnd < std::prev(next)->second.lastBegin) {
            return Text(value) + " is gone: " + Text(std::prev(next)->second.value) +
                   " was there before and after";
        }
    }
    return "";
}
