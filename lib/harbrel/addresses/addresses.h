// Pure functions on vnet names, IPv4 addresses, masks and MAC addresses. No state, no lock; failures are
// logged under the function's own name and give false.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lib/harbrel/harbrel.h"

constexpr size_t HBL_VNET_NAME_SIZE = 20;   // a buffer for a vnet name
constexpr size_t HBL_IP_STR_SIZE = 16;      // a buffer for a dotted address or mask
constexpr size_t HBL_MAC_STR_SIZE = 18;     // a buffer for a MAC address in canonical form
constexpr uint32_t HBL_INVALID_VNET = ~0u;  // HBLVnetNameToNum: no such network

// False, buffer untouched, for a number above 255.
bool HBLVnetNumToName(uint32_t vnet, char name[HBL_VNET_NAME_SIZE]);
// The number, or HBL_INVALID_VNET; logs nothing.
uint32_t HBLVnetNameToNum(const char *name);
// A number's name as a value, for log lines: "zelan8".
struct HBLVnetName {
    explicit HBLVnetName(uint32_t vnet);
    char text[HBL_VNET_NAME_SIZE];
};

// Host order, first octet in the top byte.
bool HBLIPStr2Int(const char *text, uint32_t *address);
bool HBLIPInt2Str(uint32_t address, char text[HBL_IP_STR_SIZE]);
bool HBLIPStrIsValid(const char *text);
bool HBLGetBcastAddr(const char *address, const char *mask, char broadcast[HBL_IP_STR_SIZE]);
bool HBLGetDefaultAdapterAddr(const char *subnet, char address[HBL_IP_STR_SIZE]);
bool HBLIsValidSubnetMask(const char *mask);
bool HBLMACStandardizeFormat(const char *mac, char canonical[HBL_MAC_STR_SIZE]);
bool HBLMACStrIsValid(const char *mac);
bool HBLValidateNetIDStruct(const HBL_NetworkID *netId);
