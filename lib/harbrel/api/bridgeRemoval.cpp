#include "lib/harbrel/api/bridgeRemoval.h"

#include "lib/harbrel/api/bridgeRestart.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/hostAdapterChain.h"
#include "lib/harbrel/bridging/bridging.h"
#include "lib/harbrel/harbrel.h"

bool HBLRemoveBridgeMappingsForVnet(uint32_t vnet) {
    const auto number = static_cast<int32_t>(vnet);
    bool allWorked = true;
    int32_t defaultVnet = HBL_VNET_NONE;
    if (!HBLGetDefaultBridgeVnet(&defaultVnet)) {
        HBLLog(LOG_ERR, __func__, "Failed to get value of default bridge");
        allWorked = false;
    }
    HostAdapterChain adapters;
    if (!HBLGetVnetBridge(number, &adapters)) {
        HBLLog(LOG_ERR, __func__, "Failed to get list of adapters bridged to vnet: %d", number);
        allWorked = false;
    }
    if (number == defaultVnet) {
        defaultVnet = HBL_VNET_NONE;
        if (!HBLSetDefaultBridgeVnet(defaultVnet)) {
            HBLLog(LOG_ERR, __func__, "Failed to set value of default bridge");
            allWorked = false;
        }
    }
    if (!HBLSetBridgeMappingForMultipleAdapters(defaultVnet, adapters)) {
        HBLLog(LOG_ERR, __func__, "Failed to set the bridge mapping for vnet: %d, host adapter: %s",
               defaultVnet, adapters.First()->deviceName);
        allWorked = false;
    }
    BridgeRestart remaining{defaultVnet};
    if (!remaining.Restart(__func__, "default bridge")) {
        allWorked = false;
    }
    return allWorked;
}
