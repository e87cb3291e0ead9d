// NAT parameters by internal id, and their computed defaults.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "lib/harbrel/parameters/parameters.h"

enum HBLNATParam : uint32_t {
    HBL_NAT_PARAM_GATEWAY_IP = 13859,
    HBL_NAT_PARAM_GATEWAY_NETMASK = 13860,
    HBL_NAT_PARAM_UNUSED = 13861,
    HBL_NAT_PARAM_CONFIG_PORT = 13862,
    HBL_NAT_PARAM_ACTIVE_FTP = 13863,
    HBL_NAT_PARAM_ALLOW_ANY_OUI = 13864,
    HBL_NAT_PARAM_DEVICE = 13865,
    HBL_NAT_PARAM_UDP_TIMEOUT = 13866,
    HBL_NAT_PARAM_UNKNOWN = 13867,
};

std::span<const ParameterRow> HBLNATParameterRows();

uint32_t HBLNATMapIntParamID(uint32_t externalId);
bool HBLNATGetParameter(uint32_t vnet, uint32_t paramId, bool useDefault, char *buffer, size_t bufferLength);
bool HBLNATGetParamDefault(uint32_t vnet, uint32_t paramId, char *buffer, size_t bufferLength);
bool HBLNATSetParameter(uint32_t vnet, uint32_t paramId, const char *value);
bool HBLNATRemoveParam(uint32_t vnet, uint32_t paramId);
// Everything that is stored of a network's NAT but the switch; goes on after a failure.
bool HBLNATRemoveConfig(uint32_t vnet);
