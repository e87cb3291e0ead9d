// The exported setters and getters of subnet, mask and adapter address: one setter and one getter over a
// table.
#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/frame/inOutLengths.h"
#include "lib/harbrel/harbrel.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/harbrel/networks/subnets.h"

namespace {

struct AddressSetter {
    bool (*check)(const char *value);
    const char *badValue;
    bool showsBadValue;  // behind that
    bool (*write)(uint32_t vnet, const char *value);
    bool (*remove)(uint32_t vnet);
    const char *changed;  // behind "set" or "removed"
    const char *what;     // behind "setting" or "removing"
};

constexpr AddressSetter SUBNET_SETTER = {.check = HBLIPStrIsValid,
                                         .badValue = "Subnet address is not valid: ",
                                         .showsBadValue = true,
                                         .write = HBLSetVnetSubnetAddr,
                                         .remove = HBLRemoveVnetSubnetAddr,
                                         .changed = "set the subnet address",
                                         .what = "subnet address"};
constexpr AddressSetter MASK_SETTER = {.check = HBLIsValidSubnetMask,
                                       .badValue = "Specified mask is not valid",
                                       .showsBadValue = false,
                                       .write = HBLSetVnetSubnetMask,
                                       .remove = HBLRemoveVnetSubnetMask,
                                       .changed = "the mask",
                                       .what = "mask"};
constexpr AddressSetter ADAPTER_SETTER = {.check = HBLIPStrIsValid,
                                          .badValue = "Invalid adapter IP address: ",
                                          .showsBadValue = true,
                                          .write = HBLSetVnetVirtAdapterAddr,
                                          .remove = HBLRemoveVnetVirtAdapterAddr,
                                          .changed = "adapter address",
                                          .what = "adapter address"};

struct AddressGetter {
    const char *bufferTag;  // of the argument line
    const char *lengthTag;
    const char *parameter;  // its length has the same name with "Len" behind it
    bool (*read)(uint32_t vnet, char *out, size_t size, bool computeDefault);
    const char *failure;
    const char *what;
};

constexpr AddressGetter SUBNET_GETTER = {
    .bufferTag = "ad",
    .lengthTag = "sz",
    .parameter = "addr",
    .read = [](uint32_t vnet, char *out, size_t size, bool) { return HBLGetVnetSubnetAddr(vnet, out, size); },
    .failure = "Failure in getting subnet address",
    .what = "subnet address"};
constexpr AddressGetter MASK_GETTER = {
    .bufferTag = "mask",
    .lengthTag = "maskLen",
    .parameter = "mask",
    .read = [](uint32_t vnet, char *out, size_t size, bool) { return HBLGetVnetSubnetMask(vnet, out, size); },
    .failure = "Failure in getting subnet mask",
    .what = "subnet mask"};
constexpr AddressGetter ADAPTER_GETTER = {.bufferTag = "ad",
                                          .lengthTag = "sz",
                                          .parameter = "addr",
                                          .read = HBLGetVnetVirtAdapterAddr,
                                          .failure = "Failure in getting the adapter address",
                                          .what = "adapter address"};

// A null value removes the setting.
bool SetAddress(const AddressSetter &setter, const char *function, const char *vnet, const char *value) {
    const ApiFrame frame(function);
    if (!frame.Passed()) {
        return false;
    }
    frame.log(LOG_ARGS, "Arguments - v: %p,%s, sn: %p,%s", Address(vnet), TextOrNull(vnet), Address(value),
              TextOrNull(value));
    uint32_t number;
    if (!ApiVnetArgument(frame.log, vnet, &number)) {
        return false;
    }
    if (value != nullptr && !setter.check(value)) {
        frame.log(LOG_ERR, "%s%s", setter.badValue, setter.showsBadValue ? value : "");
        return false;
    }
    const ConfigLock lock(frame.log);
    if (!lock.Held()) {
        return false;
    }
    if (!(value != nullptr ? setter.write(number, value) : setter.remove(number))) {
        frame.log(LOG_ERR, "Error %s %s for vnet: %s", value != nullptr ? "setting" : "removing", setter.what,
                  vnet);
        return false;
    }
    frame.log(LOG_OK, "Successfully %s %s for vnet: %s", value != nullptr ? "set" : "removed", setter.changed,
              vnet);
    return true;
}

bool GetAddress(const AddressGetter &getter, const char *function, const char *vnet, char *out, uint32_t *len,
                bool computeDefault) {
    const ApiFrame frame(function);
    if (!frame.Passed()) {
        return false;
    }
    const uint32_t size = ValueOrZero(len);
    frame.log(LOG_ARGS, "Arguments - v: %p,%s, %s: %p, %s:%p,%u", Address(vnet), TextOrNull(vnet),
              getter.bufferTag, Address(out), getter.lengthTag, Address(len), size);
    if (vnet == nullptr || out == nullptr || size < HBL_IP_STR_SIZE) {
        frame.log(LOG_ERR, "Invalid argument - vnet: %p, %s: %p, %sLen:%p,%u", Address(vnet),
                  getter.parameter, Address(out), getter.parameter, Address(len), size);
        return false;
    }
    uint32_t number;
    if (!ApiVnetNumber(frame.log, vnet, &number)) {
        return false;
    }
    if (!getter.read(number, out, size, computeDefault)) {
        frame.log(LOG_ERR, "%s", getter.failure);
        return false;
    }
    *len = LengthWithTerminator(out);
    frame.log(LOG_INFO2, "Retrieved %s: %s, len: %u", getter.what, out, *len);
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
