// The exported setters and getters of subnet, mask and adapter address: one setter and one getter over a
// table.
#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/harbrel.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/harbrel/networks/subnets.h"

namespace {

struct AddressSetter {
    bool (*check)(const char *value);
    const char *badValue;  // may take the value
    bool (*write)(uint32_t vnet, const char *value);
    bool (*remove)(uint32_t vnet);
    const char *success;  // takes "set" or "removed", and the vnet name
    const char *failure;  // takes "setting" or "removing", and the vnet name
};

constexpr AddressSetter SUBNET_SETTER = {HBLIPStrIsValid,
                                         "Subnet address is not valid: %s",
                                         HBLSetVnetSubnetAddr,
                                         HBLRemoveVnetSubnetAddr,
                                         "Successfully %s set the subnet address for vnet: %s",
                                         "Error %s subnet address for vnet: %s"};
constexpr AddressSetter MASK_SETTER = {
    HBLIsValidSubnetMask,    "Specified mask is not valid",           HBLSetVnetSubnetMask,
    HBLRemoveVnetSubnetMask, "Successfully %s the mask for vnet: %s", "Error %s mask for vnet: %s"};
constexpr AddressSetter ADAPTER_SETTER = {HBLIPStrIsValid,
                                          "Invalid adapter IP address: %s",
                                          HBLSetVnetVirtAdapterAddr,
                                          HBLRemoveVnetVirtAdapterAddr,
                                          "Successfully %s adapter address for vnet: %s",
                                          "Error %s adapter address for vnet: %s"};

struct AddressGetter {
    const char *arguments;        // takes name, its text, buffer, length and *length
    const char *invalidArgument;  // takes name, buffer, length and *length
    bool (*read)(uint32_t vnet, char *out, size_t size, bool computeDefault);
    const char *failure;
    const char *success;  // takes the text and its length with the terminator
};

constexpr AddressGetter SUBNET_GETTER = {
    "Arguments - v: %p,%s, ad: %p, sz:%p,%u", "Invalid argument - vnet: %p, addr: %p, addrLen:%p,%u",
    [](uint32_t vnet, char *out, size_t size, bool) { return HBLGetVnetSubnetAddr(vnet, out, size); },
    "Failure in getting subnet address", "Retrieved subnet address: %s, len: %u"};
constexpr AddressGetter MASK_GETTER = {
    "Arguments - v: %p,%s, mask: %p, maskLen:%p,%u", "Invalid argument - vnet: %p, mask: %p, maskLen:%p,%u",
    [](uint32_t vnet, char *out, size_t size, bool) { return HBLGetVnetSubnetMask(vnet, out, size); },
    "Failure in getting subnet mask", "Retrieved subnet mask: %s, len: %u"};
constexpr AddressGetter ADAPTER_GETTER = {"Arguments - v: %p,%s, ad: %p, sz:%p,%u",
                                          "Invalid argument - vnet: %p, addr: %p, addrLen:%p,%u",
                                          HBLGetVnetVirtAdapterAddr, "Failure in getting the adapter address",
                                          "Retrieved adapter address: %s, len: %u"};

// A null value removes the setting.
bool SetAddress(const AddressSetter &setter, const char *function, const char *vnet, const char *value) {
    const ApiFrame frame(function);
    if (!frame.Passed()) {
        return false;
    }
    HBLLog(LOG_ARGS, function, "Arguments - v: %p,%s, sn: %p,%s", static_cast<const void *>(vnet),
           TextOrNull(vnet), static_cast<const void *>(value), TextOrNull(value));
    uint32_t number;
    if (!ApiVnetArgument(function, vnet, &number)) {
        return false;
    }
    if (value != nullptr && !setter.check(value)) {
        HBLLog(LOG_ERR, function, setter.badValue, value);
        return false;
    }
    const ConfigLock lock(function);
    if (!lock.Held()) {
        return false;
    }
    if (!(value != nullptr ? setter.write(number, value) : setter.remove(number))) {
        HBLLog(LOG_ERR, function, setter.failure, value != nullptr ? "setting" : "removing", vnet);
        return false;
    }
    HBLLog(LOG_OK, function, setter.success, value != nullptr ? "set" : "removed", vnet);
    return true;
}

bool GetAddress(const AddressGetter &getter, const char *function, const char *vnet, char *out, uint32_t *len,
                bool computeDefault) {
    const ApiFrame frame(function);
    if (!frame.Passed()) {
        return false;
    }
    const uint32_t size = ValueOrZero(len);
    HBLLog(LOG_ARGS, function, getter.arguments, static_cast<const void *>(vnet), TextOrNull(vnet),
           static_cast<void *>(out), static_cast<void *>(len), size);
    if (vnet == nullptr || out == nullptr || size < HBL_IP_STR_SIZE) {
        HBLLog(LOG_ERR, function, getter.invalidArgument, static_cast<const void *>(vnet),
               static_cast<void *>(out), static_cast<void *>(len), size);
        return false;
    }
    uint32_t number;
    if (!ApiVnetNumber(function, vnet, &number)) {
        return false;
    }
    if (!getter.read(number, out, size, computeDefault)) {
        HBLLog(LOG_ERR, function, "%s", getter.failure);
        return false;
    }
    *len = LengthWithTerminator(out);
    HBLLog(LOG_INFO2, function, getter.success, out, *len);
    return true;
}

}  // namespace

bool HBL_SetVnetSubnetAddr(const char *vnet, const char *value) {
    return SetAddress(SUBNET_SETTER, __func__, vnet, value);
}

bool HBL_SetVnetSubnetMask(const char *vnet, const char *value) {
    return SetAddress(MASK_SETTER, __func__, vnet, value);
}

bool HBL_SetVnetAdapterAddr(const char *vnet, const char *value) {
    return SetAddress(ADAPTER_SETTER, __func__, vnet, value);
}

bool HBL_GetVnetSubnetAddr(const char *vnet, char *addr, uint32_t *len) {
    return GetAddress(SUBNET_GETTER, __func__, vnet, addr, len, false);
}

bool HBL_GetVnetSubnetMask(const char *vnet, char *mask, uint32_t *len) {
    return GetAddress(MASK_GETTER, __func__, vnet, mask, len, false);
}

bool HBL_GetVnetAdapterAddr(const char *vnet, char *addr, uint32_t *len, bool computeDefault) {
    return GetAddress(ADAPTER_GETTER, __func__, vnet, addr, len, computeDefault);
}
