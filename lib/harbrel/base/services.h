// The five kinds of service: external types, internal ids, display names.
#pragma once

#include <cstdint>

constexpr uint32_t HBL_NUM_VNETS = 256;

enum HBLServiceId : uint32_t {
    HBL_SVC_NONE = 0,
    HBL_SVC_BRIDGE = 1,
    HBL_SVC_NETIFUP = 2,
    HBL_SVC_DHCP = 3,
    HBL_SVC_NAT = 4,
    HBL_SVC_NETDETECT = 5,
};

uint32_t HBLMapServiceType(uint32_t serviceType);  // the internal id, 0 for any other value
const char *HBLServiceName(uint32_t service);      // the display name, "" for any other id
