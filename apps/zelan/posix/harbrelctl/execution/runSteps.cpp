#include "apps/zelan/posix/harbrelctl/execution/runSteps.h"

#include <net/if.h>

#include <chrono>
#include <set>
#include <thread>

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
    return service == SERVICE_ADAPTER ? HBL_EnableNetworkAdapter(name)
                                      : HBL_StartService(name, SERVICES[service].type);
}

// The library's own success does not mean that nothing is left.
bool Remove(const Host &host, int network, Remains *remains) {
    if (!WaitForInterfaceToGo(host, network) || !HBL_DeleteVnetFromDatabase(NetworkName(network).c_str())) {
        return false;
    }
    *remains = RemoveRemains(host.paths, network);
    return remains->ours.empty();
}

bool RunStep(const Host &host, const Step &step, Remains *remains) {
    const std::string name = NetworkName(step.network);
    switch (step.kind) {
        case STEP_STOP:
            return Stop(name.c_str(), step.service);
        case STEP_WRITE:
            return step.service == SERVICE_DHCP ? HBL_UpdateDHCPFromConfig(name.c_str())
                                                : HBL_UpdateNATFromConfig(name.c_str());
        case STEP_START:
            return Start(name.c_str(), step.service);
        case STEP_REMOVE:
            return Remove(host, step.network, remains);
        case STEP_NODE:
            return HBL_CreateZelanDevice(name.c_str());
    }
    return false;
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
        const LogMark mark(host.paths.log);
        Remains remains;
        const bool done = RunStep(host, step, &remains);
        if (!done && step.kind != STEP_WRITE) {
            spoilt.insert(who);
        }
        good = good && done;
        const std::string stays = remains.ours.empty() ? "" : remains.ours + " stays: " + remains.reason;
        tell(step, {done, done || !stays.empty() ? stays : mark.LastReason(), remains.foreign});
    }
    return good;
}
