// The per-vnet answers of the database: keys, accessors, and whether an option is configured.
// No locks: writers run under the database lock that the exported function holds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

constexpr const char *VNET_FIELD_SUBNET = "HOSTONLY_SUBNET";
constexpr const char *VNET_FIELD_NETMASK = "HOSTONLY_NETMASK";
constexpr const char *VNET_FIELD_ADAPTER = "VIRTUAL_ADAPTER";
constexpr const char *VNET_FIELD_ADAPTER_ADDR = "VIRTUAL_ADAPTER_ADDR";
constexpr const char *VNET_FIELD_ADAPTER_NAME = "VIRTUAL_ADAPTER_NAME";
constexpr const char *VNET_FIELD_DHCP = "DHCP";
constexpr const char *VNET_FIELD_DHCP_CFG_HASH = "DHCP_CFG_HASH";
constexpr const char *VNET_FIELD_NAT = "NAT";
constexpr size_t HBL_ADAPTER_NAME_SIZE = 16;  // a buffer for an interface name

enum HBLOption : uint32_t {
    HBL_OPTION_NONE = 0,
    HBL_OPTION_BRIDGE = 1,
    HBL_OPTION_DHCP = 2,
    HBL_OPTION_NAT = 3,
    HBL_OPTION_VIRTUAL_ADAPTER = 4,
    HBL_OPTION_SUBNET = 5,
};

std::optional<std::string> HBLGetVnetCfg(uint32_t vnet, const char *field);  // a copy; nothing when absent
// *size: in the buffer's size, out the length with its terminator (also when it does not fit).
bool HBLGetVnetCfgCpy(uint32_t vnet, const char *field, char *out, size_t *size);
bool HBLSetVnetCfg(uint32_t vnet, const char *field, const char *value);
bool HBLRemoveVnetCfg(uint32_t vnet, const char *field);   // true also when there was nothing to remove
bool HBLGetVnetCfgBool(uint32_t vnet, const char *field);  // false when absent
bool HBLSetVnetCfgBool(uint32_t vnet, const char *field, bool value);  // not if it reads so already

bool HBLVnetUsesDHCP(uint32_t vnet);
bool HBLVnetUsesNAT(uint32_t vnet);
bool HBLGetVnetSubnetAddr(uint32_t vnet, char *out, size_t size);
bool HBLGetVnetSubnetMask(uint32_t vnet, char *out, size_t size);
bool HBLSetVnetSubnetAddr(uint32_t vnet, const char *value);
bool HBLSetVnetSubnetMask(uint32_t vnet, const char *value);
bool HBLSetVnetVirtAdapterAddr(uint32_t vnet, const char *value);
bool HBLSetVnetVirtAdapterName(uint32_t vnet, const char *value);
bool HBLRemoveVnetSubnetMask(uint32_t vnet);
bool HBLRemoveVnetVirtAdapterAddr(uint32_t vnet);
// The stored name, else the vnet's own. False when it does not fit.
bool HBLGetVnetVirtAdapterName(uint32_t vnet, char *out, size_t size);
// The stored address; without one, if `computeDefault`, the first address of the subnet, which is not stored.
bool HBLGetVnetVirtAdapterAddr(uint32_t vnet, char *out, size_t size, bool computeDefault);
bool HBLVnetIsOptionConfigured(uint32_t vnet, uint32_t option);  // false for an unknown HBLOption
uint32_t HBLServiceToVnetOption(uint32_t service);               // HBL_OPTION_NONE for a service without one
// `cleanup` also removes the adapter's stored address and name, whatever `useAdapter` says.
bool HBLSetVnetUseAdapter(uint32_t vnet, bool useAdapter, bool cleanup);
// Whether the address lies in the subnet configured on the vnet.
bool HBLIPBelongsToSubnet(uint32_t vnet, const char *address);
