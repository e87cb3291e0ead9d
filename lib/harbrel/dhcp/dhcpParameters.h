// DHCP parameters by internal id, and their computed defaults.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "lib/harbrel/parameters/parameters.h"

enum HBLDHCPParam : uint32_t {
    HBL_DHCP_PARAM_LEASE_BEGIN_IP = 9542,
    HBL_DHCP_PARAM_LEASE_END_IP = 9543,
    HBL_DHCP_PARAM_DEFAULT_LEASE_DURATION_SEC = 9546,
    HBL_DHCP_PARAM_MAX_LEASE_DURATION_SEC = 9547,
    HBL_DHCP_PARAM_BROADCAST_ADDR = 9548,
    HBL_DHCP_PARAM_DNS_ADDR = 9549,
    HBL_DHCP_PARAM_ROUTERS = 9550,
    HBL_DHCP_PARAM_DOMAIN_NAME = 9551,
    HBL_DHCP_PARAM_SUB_DEFAULT_LEASE_DURATION_SEC = 9552,
    HBL_DHCP_PARAM_SUB_MAX_LEASE_DURATION_SEC = 9553,
    HBL_DHCP_PARAM_UNKNOWN = 9554,
    HBL_DHCP_PARAM_NO_ROW = 9555,  // what external id 13356 maps to
};

constexpr size_t HBL_DHCP_DOMAIN_NAME_SIZE = 64;  // a buffer for a domain name

std::span<const ParameterRow> HBLDHCPParameterRows();

uint32_t HBLDHCPMapIntParamID(uint32_t externalId);
bool HBLDHCPGetParameter(uint32_t vnet, uint32_t paramId, bool useDefault, char *buffer, size_t bufferLength);
bool HBLDHCPGetParameterDefault(uint32_t vnet, uint32_t paramId, char *buffer, size_t bufferLength);
bool HBLDHCPSetParameter(uint32_t vnet, uint32_t paramId, const char *value);
bool HBLDHCPRemoveParameter(uint32_t vnet, uint32_t paramId);
// Everything that is stored of a network's DHCP but the switch; goes on after a failure.
bool HBLDHCPRemoveDHCPConfig(uint32_t vnet);
