#include "lib/harbrel/addresses/addresses.h"

#include <strings.h>

#include <algorithm>
#include <bit>
#include <cstdio>
#include <iterator>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/services.h"
#include "lib/string/str.h"

namespace {

constexpr char VNET_NAME_PREFIX[] = "zelan";
constexpr size_t VNET_NAME_PREFIX_LENGTH = sizeof VNET_NAME_PREFIX - 1;
constexpr uint32_t MAX_VNET = HBL_NUM_VNETS - 1;
constexpr uint32_t MAX_OCTET = 255;
constexpr uint32_t NARROWEST_MASK = 0xFFFFFFF8;  // 255.255.255.248

// The character type of the C library's functions follows the locale; names do not.
constexpr bool IsDecimalDigit(char character) {
    return character >= '0' && character <= '9';
}

}  // namespace

bool HBLVnetNumToName(uint32_t vnet, char name[HBL_VNET_NAME_SIZE]) {
    if (vnet > MAX_VNET) {
        return false;
    }
    Str_Sprintf(name, HBL_VNET_NAME_SIZE, "%s%d", VNET_NAME_PREFIX, static_cast<int>(vnet));
    return true;
}

uint32_t HBLVnetNameToNum(const char *name) {
    if (strncasecmp(name, VNET_NAME_PREFIX, VNET_NAME_PREFIX_LENGTH) != 0) {
        return HBL_INVALID_VNET;
    }
    const char *const digits = name + VNET_NAME_PREFIX_LENGTH;
    const char *next = digits;
    uint32_t number = 0;
    while (number <= MAX_VNET && IsDecimalDigit(*next)) {
        number = number * 10 + static_cast<uint32_t>(*next - '0');
        next++;
    }
    const bool wholeName = next != digits && *next == '\0';
    return wholeName && number <= MAX_VNET ? number : HBL_INVALID_VNET;
}

HBLVnetName::HBLVnetName(uint32_t vnet) : text{} {
    HBLVnetNumToName(vnet, text);
}

bool HBLIPStr2Int(const char *text, uint32_t *address) {
    unsigned octet[4];
    char trailing;
    if (sscanf(text, "%3u.%3u.%3u.%3u%c", &octet[0], &octet[1], &octet[2], &octet[3], &trailing) != 4) {
        HBLLog(LOG_ERR, __func__, "sscanf failed");
        return false;
    }
    if (octet[0] > MAX_OCTET || octet[1] > MAX_OCTET || octet[2] > MAX_OCTET || octet[3] > MAX_OCTET) {
        HBLLog(LOG_ERR, __func__, "Invalid values: %u, %u, %u, %u", octet[0], octet[1], octet[2], octet[3]);
        return false;
    }
    *address = octet[0] << 24 | octet[1] << 16 | octet[2] << 8 | octet[3];
    return true;
}

bool HBLIPInt2Str(uint32_t address, char text[HBL_IP_STR_SIZE]) {
    Str_Sprintf(text, HBL_IP_STR_SIZE, "%u.%u.%u.%u", address >> 24, address >> 16 & 0xFF,
                address >> 8 & 0xFF, address & 0xFF);
    return true;
}

bool HBLIPStrIsValid(const char *text) {
    uint32_t address;
    return HBLIPStr2Int(text, &address);
}

bool HBLGetBcastAddr(const char *address, const char *mask, char broadcast[HBL_IP_STR_SIZE]) {
    if (address == nullptr || mask == nullptr || broadcast == nullptr) {
        HBLLog(LOG_ERR, __func__, "Invalid arguments");
        return false;
    }
    uint32_t addressBits;
    uint32_t maskBits;
    if (!HBLIPStr2Int(address, &addressBits) || !HBLIPStr2Int(mask, &maskBits)) {
        return false;
    }
    return HBLIPInt2Str(addressBits | ~maskBits, broadcast);
}

bool HBLGetDefaultAdapterAddr(const char *subnet, char address[HBL_IP_STR_SIZE]) {
    uint32_t subnetBits;
    return HBLIPStr2Int(subnet, &subnetBits) && HBLIPInt2Str(subnetBits + 1, address);
}

bool HBLIsValidSubnetMask(const char *mask) {
    uint32_t bits;
    if (!HBLIPStr2Int(mask, &bits)) {
        HBLLog(LOG_ERR, __func__, "Could not convert mask to integer: %s", mask);
        return false;
    }
    if (bits == 0 || bits > NARROWEST_MASK) {
        HBLLog(LOG_ERR, __func__, "The subnet is too small, we need at least 8 hosts");
        return false;
    }
    const uint32_t ones = bits >> std::countr_zero(bits);
    if (((ones + 1) & ones) != 0) {
        HBLLog(LOG_ERR, __func__, "Mask is not a contiguous string of 1s: %x", ones);
        return false;
    }
    return true;
}

bool HBLMACStandardizeFormat(const char *mac, char canonical[HBL_MAC_STR_SIZE]) {
    unsigned group[6];
    char trailing;
    const int scanned = sscanf(mac, "%2x:%2x:%2x:%2x:%2x:%2x%c", &group[0], &group[1], &group[2], &group[3],
                               &group[4], &group[5], &trailing);
    // A sign counts as one of the two characters of a group, so "-1" reads as a number wider than a byte.
    const auto isByte = [](unsigned value) { return value <= 0xFF; };
    if (scanned != 6 || !std::all_of(std::begin(group), std::end(group), isByte)) {
        HBLLog(LOG_ERR, __func__, "sscanf failed, scanned %d elements", scanned);
        return false;
    }
    Str_Sprintf(canonical, HBL_MAC_STR_SIZE, "%.2X:%.2X:%.2X:%.2X:%.2X:%.2X", group[0], group[1], group[2],
                group[3], group[4], group[5]);
    return true;
}

bool HBLMACStrIsValid(const char *mac) {
    char canonical[HBL_MAC_STR_SIZE];
    return HBLMACStandardizeFormat(mac, canonical);
}

bool HBLValidateNetIDStruct(const HBL_NetworkID *netId) {
    if (netId->version != 1) {
        HBLLog(LOG_ERR, __func__, "Unsupported network ID version: %u", netId->version);
        return false;
    }
    if (netId->type != HBL_NETWORK_TYPE_VNET) {
        HBLLog(LOG_ERR, __func__, "Non vnet network not supported");
        return false;
    }
    if (netId->vnet < HBL_VNET_NONE || netId->vnet > static_cast<int32_t>(MAX_VNET)) {
        HBLLog(LOG_ERR, __func__, "Invalid vnet number: %d", netId->vnet);
        return false;
    }
    return true;
}
