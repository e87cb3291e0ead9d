#include "lib/harbrel/networks/featureSwitch.h"

#include "lib/harbrel/database/database.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/harbrel/networks/subnets.h"

namespace {

// One network in one call.
struct Switching {
    FunctionLog log;
    const FeatureSwitch &feature;
    const char *name;
    uint32_t vnet;

    void Say(uint32_t level, const NetworkLine &line) const {
        if (line.behindName != nullptr) {
            log(level, "%s%s%s", line.text, name, line.behindName);
        } else {
            log(level, "%s", line.text);
        }
    }
    // The value is stored, with a line for either outcome.
    bool Set(bool use, bool cleanup, uint32_t doneLevel, const NetworkLine &done,
             const NetworkLine &failed) const {
        const bool set = feature.set(vnet, use, cleanup);
        Say(set ? doneLevel : uint32_t{LOG_ERR}, set ? done : failed);
        return set;
    }
};

void TakeSubnetBack(const Switching &call) {
    if (call.feature.takingBack.text != nullptr) {
        call.Say(LOG_ERR, call.feature.takingBack);
    }
    HBLRemoveVnetSubnet(call.vnet);
}

bool AssignSubnet(const Switching &call) {
    call.Say(LOG_INFO2, call.feature.assigning);
    if (!HBLAssignUnusedSubnetAddressToVNet(call.vnet)) {
        call.Say(LOG_ERR, call.feature.assignFailed);
        TakeSubnetBack(call);
        return false;
    }
    call.Say(call.feature.assignedLevel, call.feature.assigned);
    return true;
}

bool TurnOn(const Switching &call, bool cleanup) {
    const bool hadSubnet = HBLVnetIsOptionConfigured(call.vnet, HBL_OPTION_SUBNET);
    if (!hadSubnet && !AssignSubnet(call)) {
        return false;
    }
    const bool turnedOn = call.Set(true, cleanup, LOG_OK, call.feature.turnedOn, call.feature.turnOnFailed);
    if (!turnedOn && !hadSubnet) {
        TakeSubnetBack(call);
    }
    return turnedOn;
}

}  // namespace

bool HBLApiSwitchFeature(FunctionLog log, const FeatureSwitch &feature, const char *vnet, bool use,
                         bool cleanup) {
    uint32_t number = 0;
    if (!ApiVnetArgument(log, vnet, &number)) {
        return false;
    }
    const ConfigLock lock(log);
    if (!lock.Held()) {
        return false;
    }
    const Switching call = {log, feature, vnet, number};
    const bool used = HBLVnetIsOptionConfigured(number, feature.option);
    if (used == use) {
        log(LOG_INFO, "%s", feature.same);
        return !cleanup || call.Set(use, true, LOG_INFO, feature.cleanedUp, feature.cleanupFailed);
    }
    feature.logChanging(log, used, use);
    return use ? TurnOn(call, cleanup)
               : call.Set(false, cleanup, LOG_OK, feature.turnedOff, feature.turnOffFailed);
}
