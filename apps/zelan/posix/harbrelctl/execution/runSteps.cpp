#include "apps/zelan/posix/harbrelctl/execution/runSteps.h"

#include <net/if.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <thread>

#include "apps/zelan/posix/harbrelctl/execution/commit.h"
#include "apps/zelan/posix/harbrelctl/execution/remains.h"
#include "apps/zelan/posix/harbrelctl/model/library.h"
#include "lib/harbrel/harbrel.h"

namespace {

constexpr std::chrono::milliseconds PATIENCE{10000};
constexpr std::chrono::milliseconds PAUSE{10};

// What a stopped daemon has made goes a moment after it, and the library takes no network out before.
bool WaitForInterfaceToGo(const Host &host, int network) {
    const auto name = EffectiveValue(network, host.config.networks[network], FIELD_ADAPTER_NAME);
    const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
    while (if_nametoindex(name->c_str()) != 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(PAUSE);
    }
    return true;
}

bool Stop(const char *name, Service service) {
    return service == SERVICE_ADAPTER ? HBL_DisableNetworkAdapter(name)
                                      : HBL_StopService(name, SERVICES[service].type);
}

bool Start(const char *name, Service service) {
    if (service != SERVICE_ADAPTER) {
        return HBL_StartService(name, SERVICES[service].type);
    }
    // A daemon whose interface has gone or has another name keeps the next one from making it.
    return HBL_EnableNetworkAdapter(name) ||
           (HBL_GetServiceStatus(name, HBL_SERVICE_NETIFUP) == HBL_SERVICE_STATUS_RUNNING &&
            HBL_StopService(name, HBL_SERVICE_NETIFUP) && HBL_EnableNetworkAdapter(name));
}

// The settings that a removal takes away, in the order for that: what needs a subnet goes before it.
std::vector<RecordChange> RecordsToGo(const Config &config, int network) {
    Config without = config;
    without.networks[network] = NetworkConfig();
    std::erase_if(without.mappings, [network](const auto &mapping) { return mapping.second == network; });
    std::vector<RecordChange> changes = Difference(config, without);
    std::reverse(changes.begin(), changes.end());
    return changes;
}

// The library takes the records out one by one, fails also for a file behind them, and its success does not
// mean that no file is left.
StepReport Remove(const Host &host, int network) {
    if (!WaitForInterfaceToGo(host, network)) {
        return {false, "its interface is still there"};
    }
    StepReport report;
    const std::vector<RecordChange> changes = RecordsToGo(host.config, network);
    const auto remove = [&](std::string *reason) {
        const LogMark mark(host.paths.log);
        report.done = HBL_DeleteVnetFromDatabase(NetworkName(network).c_str());
        *reason = report.done ? "" : mark.LastReason();
        return report.done || AreMade(changes);
    };
    report.done = CommitBy(changes, remove, &report.reason) && report.done;
    if (report.done) {
        const Remains remains = RemoveRemains(host.paths, network);
        report.done = remains.ours.empty();
        report.reason = report.done ? "" : remains.ours + " stays: " + remains.reason;
        report.kept = remains.foreign;
    }
    return report;
}

StepReport RunStep(const Host &host, const Step &step) {
    const std::string name = NetworkName(step.network);
    const LogMark mark(host.paths.log);
    bool done = false;
    switch (step.kind) {
        case STEP_STOP:
            done = Stop(name.c_str(), step.service);
            break;
        case STEP_WRITE:
            done = step.service == SERVICE_DHCP ? HBL_UpdateDHCPFromConfig(name.c_str())
                                                : HBL_UpdateNATFromConfig(name.c_str());
            break;
        case STEP_START:
            done = Start(name.c_str(), step.service);
            break;
        case STEP_REMOVE:
            return Remove(host, step.network);
        case STEP_NODE:
            done = HBL_CreateZelanDevice(name.c_str());
            break;
    }
    return {done, done ? "" : mark.LastReason()};
}

}  // namespace

bool RunSteps(const Host &host, const std::vector<Step> &steps, const TellStep &tell) {
    bool good = true;
    std::set<std::pair<int, Service>> spoilt;
    for (const Step &step : steps) {
        const auto who = std::pair(step.network, step.service);
        // After a file that could not be written the service starts with the one it had.
        if (spoilt.contains(who)) {
            tell(step, {false, "not tried, since a step before it failed"});
            continue;
        }
        const StepReport report = RunStep(host, step);
        if (!report.done && step.kind != STEP_WRITE) {
            spoilt.insert(who);
        }
        good = good && report.done;
        tell(step, report);
    }
    return good;
}
