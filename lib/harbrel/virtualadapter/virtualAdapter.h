// The host's own interface on a network: its state, and bringing it up and down by ioctl. No lock of its own.
#pragma once

#include <cstdint>

enum HBLAdapterState : uint32_t {
    HBL_ADAPTER_STATUS_ERROR = 0,
    HBL_ADAPTER_STATUS_ABSENT = 1,
    HBL_ADAPTER_STATUS_UP = 2,
    HBL_ADAPTER_STATUS_DOWN = 3,
};

// One of the states above. An absent interface, too, leaves a line at LOG_ERR.
uint32_t HBLAdapterStatus(const char *interfaceName);
// True when the interface is up. One that is up is left as it is; another gets the configured addresses, and
// keeps what was set when a later step fails.
bool HBLVirtAdapterEnable(uint32_t vnet);
// True when the interface is not up; its addresses stay.
bool HBLVirtAdapterDisable(uint32_t vnet);
// The work of the exported functions that make and delete a device node, argument line and test included.
bool HBLCreateDeleteZelanDevice(const char *vnet, bool create);
