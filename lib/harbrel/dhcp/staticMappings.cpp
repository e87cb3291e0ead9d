// Static DHCP mappings of a network, keyed by MAC address in its canonical form.
#include "lib/harbrel/dhcp/staticMappings.h"
#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/base/functionTrace.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/frame/inOutLengths.h"
#include "lib/harbrel/harbrel.h"

namespace {

bool StandardizeMac(FunctionLog log, const char *mac, char canonical[HBL_MAC_STR_SIZE]) {
    if (!HBLMACStandardizeFormat(mac, canonical)) {
        log(LOG_ERR, "MAC address is not valid: %s", mac);
        return false;
    }
    return true;
}

}  // namespace

bool HBLDHCPSetIPToMAC(uint32_t vnet, const char *ip, const char *mac) {
    const FunctionTrace trace(__func__);
    return ip != nullptr ? HBLNetCfgAddDHCPMACToIP(nullptr, vnet, mac, ip, false)
                         : HBLNetCfgRemoveDHCPMACToIP(nullptr, vnet, mac);
}

bool HBLDHCPGetIPToMAC(uint32_t vnet, char *ipBuffer, size_t ipBufferLength, const char *mac) {
    const FunctionTrace trace(__func__);
    if (!HBLNetCfgLookupDHCPMACToIP(nullptr, vnet, mac, ipBuffer, ipBufferLength)) {
        HBLLog(LOG_ERR, __func__, "Failure while getting the value of DHCP IP to MAC in vnet config");
        return false;
    }
    return true;
}

bool HBL_SetDHCPIPToMAC(const char *vnet, const char *ip, const char *mac) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    frame.log(LOG_ARGS, "Arguments - v: %p,%s, ip: %s, mac: %s", Address(vnet), TextOrNull(vnet),
              TextOrNull(ip), TextOrNull(mac));
    if (vnet == nullptr || mac == nullptr) {
        frame.log(LOG_ERR, "Invalid argument - vnet: %p, mac: %p", Address(vnet), Address(mac));
        return false;
    }
    uint32_t number;
    if (!ApiVnetNumber(frame.log, vnet, &number)) {
        return false;
    }
    if (ip == nullptr) {
        frame.log(LOG_INFO2, "IP address is NULL");
    } else if (!HBLIPStrIsValid(ip)) {
        frame.log(LOG_ERR, "IP address is not valid: %s", ip);
        return false;
    }
    char canonical[HBL_MAC_STR_SIZE];
    if (!StandardizeMac(frame.log, mac, canonical)) {
        return false;
    }
    const ConfigLock lock(frame.log);
    if (!lock.Held()) {
        return false;
    }
    if (!HBLDHCPSetIPToMAC(number, ip, canonical)) {
        frame.log(LOG_ERR, "Creating/Removing DHCP static mapping failed for vnet: %s", vnet);
        return false;
    }
    frame.log(LOG_OK, "Creating/Removing DHCP static mapping succeeded for vnet: %s, ip: %s, mac: %s", vnet,
              TextOrNull(ip), mac);
    return true;
}

bool HBL_GetDHCPIPToMAC(const char *vnet, char *ip, uint32_t *ipLen, const char *mac) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    const uint32_t size = ValueOrZero(ipLen);
    frame.log(LOG_ARGS, "Arguments - v: %p,%s, ip: %p, iL: %p,%u, m: %p, %s", Address(vnet), TextOrNull(vnet),
              Address(ip), Address(ipLen), size, Address(mac), TextOrNull(mac));
    if (vnet == nullptr || ip == nullptr || ipLen == nullptr || mac == nullptr || size < HBL_IP_STR_SIZE) {
        frame.log(LOG_ERR, "Invalid argument - zelan: %p, ip: %p, ipLen: %p,%u, mac: %p", Address(vnet),
                  Address(ip), Address(ipLen), size, Address(mac));
        return false;
    }
    uint32_t number;
    char canonical[HBL_MAC_STR_SIZE];
    if (!ApiVnetNumber(frame.log, vnet, &number) || !StandardizeMac(frame.log, mac, canonical)) {
        return false;
    }
    if (!HBLDHCPGetIPToMAC(number, ip, size, canonical)) {
        frame.log(LOG_ERR, "Getting DHCP static IP address mapping failedvnet: %s, MAC: %s", vnet, mac);
        return false;
    }
    *ipLen = LengthWithTerminator(ip);
    frame.log(LOG_INFO, "Success in getting DHCP static IP mapping, vnet: %s, MAC: %s, IP: %s, len: %u", vnet,
              mac, ip, *ipLen);
    return true;
}

bool HBL_EnumDHCPIPToMAC(const char *vnet, uint32_t *enumOffset, char *ip, uint32_t *ipLen, char *mac,
                         uint32_t *macLen) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    const uint32_t ipSize = ValueOrZero(ipLen);
    const uint32_t macSize = ValueOrZero(macLen);
    frame.log(LOG_ARGS, "Arguments - v: %p,%s eO: %p,%u ip: %p, iL: %p,%u, mac: %p, mL: %p,%u", Address(vnet),
              TextOrNull(vnet), Address(enumOffset), ValueOrZero(enumOffset), Address(ip), Address(ipLen),
              ipSize, Address(mac), Address(macLen), macSize);
    if (vnet == nullptr || enumOffset == nullptr || ip == nullptr || mac == nullptr ||
        ipSize < HBL_IP_STR_SIZE || macSize < HBL_MAC_STR_SIZE) {
        frame.log(
            LOG_ERR,
            "Invalid argument: vnet: %p,%s enumOffset: %p,%u ip: %p, ipLen: %p,%u, mac: %p, macLen: %p,%u",
            Address(vnet), TextOrNull(vnet), Address(enumOffset), ValueOrZero(enumOffset), Address(ip),
            Address(ipLen), ipSize, Address(mac), Address(macLen), macSize);
        return false;
    }
    uint32_t number;
    if (!ApiVnetNumber(frame.log, vnet, &number)) {
        return false;
    }
    if (!HBLNetCfgEnumDHCPMACToIP(nullptr, number, enumOffset, mac, macSize, ip, ipSize)) {
        frame.log(LOG_ERR, "No DHCP IP to MAC mappings to enumerate");
        return false;
    }
    *ipLen = LengthWithTerminator(ip);
    *macLen = LengthWithTerminator(mac);
    frame.log(LOG_INFO2, "DHCP IP to MAC mapping enumerated, vnet: %s, ip: %s, len: %u, mac: %s, len: %u",
              vnet, ip, *ipLen, mac, *macLen);
    return true;
}
