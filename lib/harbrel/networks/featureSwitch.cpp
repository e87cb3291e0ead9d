#include "lib/harbrel/networks/featureSwitch.h"

#include "lib/harbrel/database/database.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/harbrel/networks/subnets.h"

namespace {

void TakeSubnetBack(const FeatureSwitch &feature, const char *name, uint32_t vnet) {
    if (feature.takingBack != nullptr) {
        HBLLog(LOG_ERR, feature.function, feature.takingBack, name);
    }
    HBLRemoveVnetSubnet(vnet);
}

bool CleanUp(const FeatureSwitch &feature, const char *name, uint32_t vnet, bool use) {
    if (feature.set(vnet, use, true)) {
        HBLLog(LOG_INFO, feature.function, feature.cleanedUp, name);
        return true;
    }
    HBLLog(LOG_ERR, feature.function, feature.cleanupFailed, name);
    return false;
}

bool AssignSubnet(const FeatureSwitch &feature, const char *name, uint32_t vnet) {
    HBLLog(LOG_INFO2, feature.function, feature.assigning, name);
    if (!HBLAssignUnusedSubnetAddressToVNet(vnet)) {
        HBLLog(LOG_ERR, feature.function, feature.assignFailed, name);
        TakeSubnetBack(feature, name, vnet);
        return false;
    }
    HBLLog(feature.assignedLevel, feature.function, feature.assigned, name);
    return true;
}

bool TurnOn(const FeatureSwitch &feature, const char *name, uint32_t vnet, bool cleanup) {
    const bool hadSubnet = HBLVnetIsOptionConfigured(vnet, HBL_OPTION_SUBNET);
    if (!hadSubnet && !AssignSubnet(feature, name, vnet)) {
        return false;
    }
    if (feature.set(vnet, true, cleanup)) {
        HBLLog(LOG_OK, feature.function, feature.turnedOn, name);
        return true;
    }
    HBLLog(LOG_ERR, feature.function, feature.turnOnFailed, name);
    if (!hadSubnet) {
        TakeSubnetBack(feature, name, vnet);
    }
    return false;
}

bool TurnOff(const FeatureSwitch &feature, const char *name, uint32_t vnet, bool cleanup) {
    if (feature.set(vnet, false, cleanup)) {
        HBLLog(LOG_OK, feature.function, feature.turnedOff, name);
        return true;
    }
    HBLLog(LOG_ERR, feature.function, feature.turnOffFailed, name);
    return false;
}

}  // namespace

bool HBLApiSwitchFeature(const FeatureSwitch &feature, const char *vnet, bool use, bool cleanup) {
    const ApiFrame frame(feature.function);
    if (!frame.Passed()) {
        return false;
    }
    HBLLog(LOG_ARGS, feature.function, feature.arguments, static_cast<const void *>(vnet), TextOrNull(vnet),
           use, cleanup);
    uint32_t number = 0;
    if (!ApiVnetArgument(feature.function, vnet, &number)) {
        return false;
    }
    const ConfigLock lock(feature.function);
    if (!lock.Held()) {
        return false;
    }
    const bool inUse = HBLVnetIsOptionConfigured(number, feature.option);
    if (inUse == use) {
        HBLLog(LOG_INFO, feature.function, feature.same, vnet);
        return !cleanup || CleanUp(feature, vnet, number, use);
    }
    HBLLog(LOG_INFO2, feature.function, feature.changing, inUse, use);
    return use ? TurnOn(feature, vnet, number, cleanup) : TurnOff(feature, vnet, number, cleanup);
}
