#include "lib/harbrel/dhcp/dhcp.h"

#include "lib/harbrel/base/functionTrace.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/dhcp/dhcpConfigFile.h"
#include "lib/harbrel/dhcp/dhcpParameters.h"
#include "lib/harbrel/files/files.h"
#include "lib/harbrel/networks/settings.h"

namespace {

bool RemoveFiles(FunctionLog log, uint32_t vnet) {
    HBLRemoveFile(vnet, HBL_FILE_DHCP_CONF_BACKUP, nullptr);
    HBLRemoveFile(vnet, HBL_FILE_DHCP_LEASES_BACKUP, nullptr);
    const bool confRemoved = HBLRemoveFile(vnet, HBL_FILE_DHCP_CONF, nullptr);
    const bool leasesRemoved = HBLRemoveFile(vnet, HBL_FILE_DHCP_LEASES, nullptr);
    HBLRemoveFile(vnet, HBL_FILE_DHCP_DIR, nullptr);
    HBLRemoveFile(vnet, HBL_FILE_VNET_DIR, nullptr);  // fails while the NAT directory is there
    if (!confRemoved || !leasesRemoved) {
        log(LOG_ERR, "Removing DHCP configuration files failed");
        return false;
    }
    log(LOG_INFO, "Removed all traces of DHCP configuration for vnet: %d", vnet);
    return true;
}

}  // namespace

bool HBLSetVnetUseDHCP(uint32_t vnet, bool useDHCP, bool cleanup) {
    if (!HBLSetVnetCfgBool(vnet, VNET_FIELD_DHCP, useDHCP)) {
        HBLLog(LOG_ERR, __func__, "Error setting DHCP to %u in vnet config", useDHCP);
        return false;
    }
    HBLLog(LOG_INFO2, __func__, "DHCP set to %u in vnet config for vnet: %u", useDHCP, vnet);
    if (cleanup && !HBLDHCPRemoveDHCPConfig(vnet)) {
        HBLLog(LOG_ERR, __func__, "Error removing DHCP configuration informtion");
        return false;
    }
    return true;
}

bool HBLDHCPUpdateFromConfig(uint32_t vnet) {
    const FunctionTrace trace(__func__);
    return HBLVnetUsesDHCP(vnet) ? HBLDHCPWriteDHCPCfg(vnet) : RemoveFiles(__func__, vnet);
}
