// What runs for one network, each with the line that says what became of it. The library is loaded; true when
// all went well.
#pragma once

#include <cstdint>

#include "lib/harbrel/harbrel.h"

// A service and the flag that tells of it.
struct NetworkService {
    uint8_t HBL_FeatureGroup::*flag;
    uint32_t serviceType;
    const char *name;         // while it runs
    const char *stoppedName;  // while it does not
};

constexpr NetworkService BRIDGE_SERVICE = {&HBL_FeatureGroup::bridge, HBL_SERVICE_BRIDGE, "Bridge networking",
                                           "Bridged networking"};
constexpr NetworkService DHCP_SERVICE = {&HBL_FeatureGroup::dhcp, HBL_SERVICE_DHCP, "DHCP service",
                                         "DHCP service"};
constexpr NetworkService NAT_SERVICE = {&HBL_FeatureGroup::nat, HBL_SERVICE_NAT, "NAT service",
                                        "NAT service"};

bool StartNetworkService(const char *network, const NetworkService &service);
bool StartNetworkAdapter(const char *network);

// Stops what runs on the network, going by the structure's runtime flags, and deletes the device node.
bool StopNetworkServices(const char *network, const HBL_VnetFeatures &features);
// False when something that is configured does not run.
bool ReportNetworkStatus(const char *network, const HBL_VnetFeatures &features);
// Regenerates the DHCP and NAT files.
bool UpdateNetworkConfigFiles(const char *network, const HBL_VnetFeatures &features);
