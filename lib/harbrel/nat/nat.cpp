#include "lib/harbrel/nat/nat.h"

#include "lib/harbrel/base/functionTrace.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/files/files.h"
#include "lib/harbrel/nat/natConfigFile.h"
#include "lib/harbrel/nat/natParameters.h"
#include "lib/harbrel/networks/settings.h"

namespace {

bool RemoveFiles(FunctionLog log, uint32_t vnet) {
    const bool confRemoved = HBLRemoveFile(vnet, HBL_FILE_NAT_CONF, nullptr);
    const bool backupRemoved = HBLRemoveFile(vnet, HBL_FILE_NAT_CONF_BACKUP, nullptr);
    HBLRemoveFile(vnet, HBL_FILE_NAT_DIR, nullptr);
    HBLRemoveFile(vnet, HBL_FILE_VNET_DIR, nullptr);  // fails while the DHCP directory is there
    if (!confRemoved || !backupRemoved) {
        log(LOG_ERR, "Removing NAT configuration files failed");
        return false;
    }
    return true;
}

}  // namespace

// Unlike DHCP, a failure to clear the stored values does not fail the switch.
bool HBLSetVnetUseNAT(uint32_t vnet, bool useNAT, bool cleanup) {
    if (!HBLSetVnetCfgBool(vnet, VNET_FIELD_NAT, useNAT)) {
        HBLLog(LOG_ERR, __func__, "Error setting NAT to %u in vnet config", useNAT);
        return false;
    }
    HBLLog(LOG_INFO2, __func__, "NAT set to %u in vnet config for vnet: %u", useNAT, vnet);
    if (cleanup && !HBLNATRemoveConfig(vnet)) {
        HBLLog(LOG_INFO, __func__, "Error removing NAT coniguration information");
    }
    return true;
}

bool HBLNATUpdateFromConfig(uint32_t vnet) {
    const FunctionTrace trace(__func__);
    return HBLVnetUsesNAT(vnet) ? HBLNATWriteConfigFile(__func__, vnet) : RemoveFiles(__func__, vnet);
}
