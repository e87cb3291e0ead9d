#include "lib/harbrel/networks/settings.h"

#include <cstring>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cache.h"
#include "lib/string/str.h"

namespace {

// The database key of one field of one vnet. False when it was too long.
class VnetKey {
  public:
    VnetKey(uint32_t vnet, const char *field)
        : valid_(Str_Snprintf(text_, sizeof text_, "VNET_%d_%s", static_cast<int>(vnet), field) >= 0) {}
    explicit operator bool() const { return valid_; }
    const char *Text() const { return text_; }

  private:
    char text_[512];
    bool valid_;
};

bool RemoveField(uint32_t vnet, const char *field, FunctionLog log, const char *failureLine) {
    if (!HBLRemoveVnetCfg(vnet, field)) {
        log(LOG_ERR, "%s", failureLine);
        return false;
    }
    return true;
}

}  // namespace

std::optional<std::string> HBLGetVnetCfg(uint32_t vnet, const char *field) {
    const VnetKey key(vnet, field);
    return key ? HBLNetCfgCopyAnswer(nullptr, key.Text()) : std::nullopt;
}

bool HBLGetVnetCfgCpy(uint32_t vnet, const char *field, char *out, size_t *size) {
    const auto value = HBLGetVnetCfg(vnet, field);
    if (!value.has_value()) {
        HBLLog(LOG_INFO2, __func__, "Unable to find host configuration entry : \"%s\" for Vnet: %d", field,
               static_cast<int>(vnet));
        return false;
    }
    const size_t needed = value->size() + 1;
    const bool fits = needed <= *size;
    if (fits) {
        memcpy(out, value->c_str(), needed);
    } else {
        HBLLog(LOG_INFO2, __func__, "Insufficient space provided for host configuration entry: \"%s\".",
               field);
    }
    *size = needed;
    return fits;
}

bool HBLSetVnetCfg(uint32_t vnet, const char *field, const char *value) {
    const VnetKey key(vnet, field);
    return key && HBLNetCfgAddAnswerString(nullptr, key.Text(), value);
}

bool HBLRemoveVnetCfg(uint32_t vnet, const char *field) {
    if (field == nullptr) {
        HBLLog(LOG_ERR, __func__, "Invalid config option");
        return false;
    }
    const VnetKey key(vnet, field);
    return key && HBLNetCfgRemoveAnswer(nullptr, key.Text());
}

bool HBLGetVnetCfgBool(uint32_t vnet, const char *field) {
    const VnetKey key(vnet, field);
    bool value = false;
    return key && HBLNetCfgGetAnswerBool(nullptr, key.Text(), &value) && value;
}

bool HBLSetVnetCfgBool(uint32_t vnet, const char *field, bool value) {
    const VnetKey key(vnet, field);
    return key && HBLNetCfgSetAnswerBool(nullptr, key.Text(), value);
}

bool HBLVnetUsesDHCP(uint32_t vnet) {
    return HBLGetVnetCfgBool(vnet, VNET_FIELD_DHCP);
}

bool HBLVnetUsesNAT(uint32_t vnet) {
    return HBLGetVnetCfgBool(vnet, VNET_FIELD_NAT);
}

bool HBLGetVnetSubnetAddr(uint32_t vnet, char *out, size_t size) {
    return HBLGetVnetCfgCpy(vnet, VNET_FIELD_SUBNET, out, &size);
}

bool HBLGetVnetSubnetMask(uint32_t vnet, char *out, size_t size) {
    return HBLGetVnetCfgCpy(vnet, VNET_FIELD_NETMASK, out, &size);
}

bool HBLSetVnetSubnetAddr(uint32_t vnet, const char *value) {
    return HBLSetVnetCfg(vnet, VNET_FIELD_SUBNET, value);
}

bool HBLSetVnetSubnetMask(uint32_t vnet, const char *value) {
    return HBLSetVnetCfg(vnet, VNET_FIELD_NETMASK, value);
}

bool HBLSetVnetVirtAdapterAddr(uint32_t vnet, const char *value) {
    return HBLSetVnetCfg(vnet, VNET_FIELD_ADAPTER_ADDR, value);
}

bool HBLSetVnetVirtAdapterName(uint32_t vnet, const char *value) {
    return HBLSetVnetCfg(vnet, VNET_FIELD_ADAPTER_NAME, value);
}

bool HBLRemoveVnetSubnetMask(uint32_t vnet) {
    return HBLRemoveVnetCfg(vnet, VNET_FIELD_NETMASK);
}

bool HBLRemoveVnetVirtAdapterAddr(uint32_t vnet) {
    return HBLRemoveVnetCfg(vnet, VNET_FIELD_ADAPTER_ADDR);
}

bool HBLSetVnetUseAdapter(uint32_t vnet, bool useAdapter, bool cleanup) {
    if (!HBLSetVnetCfgBool(vnet, VNET_FIELD_ADAPTER, useAdapter)) {
        HBLLog(LOG_ERR, __func__, "Error setting VIRTUAL_ADAPTER to %u in vnet config",
               static_cast<unsigned>(useAdapter));
        return false;
    }
    HBLLog(LOG_INFO2, __func__, "VIRTUAL_ADAPTER set to %u in vnet config for vnet: %u",
           static_cast<unsigned>(useAdapter), vnet);
    return !cleanup || (RemoveField(vnet, VNET_FIELD_ADAPTER_ADDR, __func__,
                                    "Error removing Adapter address from vnet config") &&
                        RemoveField(vnet, VNET_FIELD_ADAPTER_NAME, __func__,
                                    "Error removing Adapter name from vnet config"));
}
