// The host's own interface on a network: its state, and bringing it up and down by ioctl. No lock of its own.
#pragma once

#include <cstdint>

enum HBLAdapterState : uint32_t {
    HBL_ADAPTER_STATUS_ERROR = 0,
    HBL_ADAPTER_STATUS_ABSENT = 1,
    HBL_ADAPTER_STATUS_UP = 2,
    HBL_ADAPTER_STATUS_DOWN = 3,
};

uint32_t HBLAdapterStatus(const char *interfaceName);
bool HBLVirtAdapterEnable(uint32_t vnet);
bool HBLVirtAdapterDisable(uint32_t vnet);
bool HBLCreateDeleteZelanDevice(const char *vnet, bool create);
