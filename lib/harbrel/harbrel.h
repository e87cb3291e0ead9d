/*
 * The exported interface of the network configuration library, as prototypes.
 *
 * This is the agreed shape: names, argument order and types. The project's own public header
 * lib/harbrel/harbrel.h declares the same, with documentation, and compiles as C11 and as C++20.
 * Every function has C linkage.
 */
#pragma once
#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define HBL_VNET_NONE (-1)
#define HBL_NETWORK_TYPE_VNET 1u

enum { /* log levels: bits of the mask */
       LOG_ERR = 1,
       LOG_INFO = 2,
       LOG_ERRCMN = 4,
       LOG_WRN = 8,
       LOG_OK = 16,
       LOG_INFO2 = 32,
       LOG_ARGS = 64
};
enum { /* service types */
       HBL_SERVICE_BRIDGE = 34817,
       HBL_SERVICE_DHCP = 34818,
       HBL_SERVICE_NAT = 34819,
       HBL_SERVICE_NETIFUP = 34820,
       HBL_SERVICE_NETDETECT = 34821
};
enum { /* service status */
       HBL_SERVICE_STATUS_STOPPED = 33796,
       HBL_SERVICE_STATUS_RUNNING = 33800,
       HBL_SERVICE_STATUS_ERROR = 33824
};
enum { /* query values of HBL_FindVnetWithFeatures */
       HBL_FEATURE_ANY = 0,
       HBL_FEATURE_YES = 1,
       HBL_FEATURE_NO = 2
};

typedef struct HBL_NetworkID {
    uint32_t version;
    uint32_t type;
    int32_t vnet;
    uint8_t reserved[16];
} HBL_NetworkID;

typedef struct HBL_FeatureGroup { /* 32 bytes */
    uint8_t dhcp, nat, bridge, hostOnlyAdapter;
    uint8_t reserved[28];
} HBL_FeatureGroup;

typedef struct HBL_VnetFeatures {
    uint32_t version;
    HBL_NetworkID net;
    uint8_t subnet;
    HBL_FeatureGroup config;
    HBL_FeatureGroup runtime;
} HBL_VnetFeatures;

#pragma pack(push, 1)
typedef struct HBL_HostAdapter { /* fields in order and without gaps */
    uint32_t version;
    struct HBL_HostAdapter *next;
    HBL_NetworkID net;
    uint32_t status;
    char displayName[128];
    char driverName[128];
    char deviceName[128];
} HBL_HostAdapter;
#pragma pack(pop)

typedef struct HBL_HostAdapterList {
    uint32_t version;
    uint32_t count;
    HBL_HostAdapter *first;
} HBL_HostAdapterList;

/* lifecycle, answers, log */
bool HBL_Load(void);
void HBL_Unload(void);
uint32_t HBL_GetNumVnets(void);
bool HBL_VnetCfgGetAnswer(const char *key, const char **value);
bool HBL_VnetCfgAddAnswer(const char *key, const char *value);
bool HBL_VnetCfgRemoveAnswer(const char *key);
bool HBL_SetDefaultLogLevel(uint32_t level);
bool HBL_SetLogLevel(uint32_t mask);
uint32_t HBL_GetLogLevel(void);

/* services; vnet is a network's name, or null for the detection daemon */
uint32_t HBL_GetServiceStatus(const char *vnet, uint32_t serviceType);
bool HBL_StopService(const char *vnet, uint32_t serviceType);
bool HBL_StartService(const char *vnet, uint32_t serviceType);
bool HBL_DeleteVnetFromDatabase(const char *vnet);

/* database as a whole */
bool HBL_CreateNetworkingDB(bool overwrite);
bool HBL_DeleteNetworkingDB(void);
bool HBL_CheckNetworkingDB(void);
bool HBL_NetworkingDBExists(void);
bool HBL_ImportDatabaseFromFile(const char *file);
bool HBL_ExportDatabaseToFile(const char *file);

/* DHCP */
bool HBL_SetVnetUseDHCP(const char *vnet, bool useDHCP, bool cleanup);
bool HBL_GetVnetUseDHCP(const char *vnet);
bool HBL_SetDHCPParam(const char *vnet, uint32_t paramID, const char *param, uint32_t paramLen);
bool HBL_GetDHCPParam(const char *vnet, uint32_t paramID, bool useDefault, char *param, uint32_t *paramLen);
bool HBL_SetDHCPIPToMAC(const char *vnet, const char *ip, const char *mac);
bool HBL_GetDHCPIPToMAC(const char *vnet, char *ip, uint32_t *ipLen, const char *mac);
bool HBL_EnumDHCPIPToMAC(const char *vnet, uint32_t *enumOffset, char *ip, uint32_t *ipLen, char *mac,
                         uint32_t *macLen);
bool HBL_UpdateDHCPFromConfig(const char *vnet);

/* NAT */
bool HBL_SetVnetUseNAT(const char *vnet, bool useNAT, bool cleanup);
bool HBL_GetVnetUseNAT(const char *vnet);
bool HBL_SetNATParam(const char *vnet, uint32_t paramID, const char *param, uint32_t paramLen);
bool HBL_GetNATParam(const char *vnet, uint32_t paramID, bool useDefault, char *param, uint32_t *paramLen);
bool HBL_SetNATPortForward(const char *vnet, bool tcp, uint16_t hostPort, const char *vmIP, uint16_t vmPort,
                           const char *description, uint32_t descLen);
bool HBL_GetNATPortForward(const char *vnet, bool tcp, uint16_t hostPort, char *vmIP, uint32_t *vmIPLen,
                           uint16_t *vmPort, char *description, uint32_t *descLen);
bool HBL_EnumNATPortForward(const char *vnet, bool tcp, uint32_t *enumOffset, uint16_t *hostPort, char *vmIP,
                            uint32_t *vmIPLen, uint16_t *vmPort, char *description, uint32_t *descLen);
bool HBL_UpdateNATFromConfig(const char *vnet);

/* subnets */
bool HBL_AssignSubnetAddressToVnet(const char *vnet, bool overwriteExisting);
bool HBL_CheckSubnetAvailability(const char *vnet, bool broadcast, uint32_t timeout, uint32_t interval,
                                 bool *available);
bool HBL_GetUnusedSubnet(char *subnet, uint32_t subnetLen, char *mask, uint32_t maskLen);

/* host-only adapters and device nodes */
bool HBL_EnableNetworkAdapter(const char *vnet);
bool HBL_DisableNetworkAdapter(const char *vnet);
bool HBL_UpdateAdapterFromConfig(const char *vnet);
bool HBL_GetVnetAdapterStatus(const char *vnet, bool *installed, bool *enabled);
bool HBL_CreateZelanDevice(const char *vnet);
bool HBL_DeleteZelanDevice(const char *vnet);
bool HBL_SetVnetUseAdapter(const char *vnet, bool useAdapter, bool cleanup);

/* host adapters and bridging */
bool HBL_GetHostAdapterList(uint32_t version, HBL_HostAdapterList **header);
void HBL_FreeHostAdapterList(HBL_HostAdapterList *header);
bool HBL_GetBridgeDefaultNetwork(HBL_NetworkID *netId);
bool HBL_SetBridgeDefaultNetwork(const HBL_NetworkID *netId);
bool HBL_BridgeMoveAdapter(const HBL_HostAdapter *adapter, const HBL_NetworkID *source,
                           const HBL_NetworkID *destination);

/* features and addresses */
bool HBL_GetVnetFeatures(HBL_VnetFeatures *ft);
bool HBL_FindVnetWithFeatures(HBL_VnetFeatures *ft);
bool HBL_SetVnetSubnetAddr(const char *vnet, const char *value);
bool HBL_GetVnetSubnetAddr(const char *vnet, char *addr, uint32_t *len);
bool HBL_SetVnetSubnetMask(const char *vnet, const char *value);
bool HBL_GetVnetSubnetMask(const char *vnet, char *mask, uint32_t *len);
bool HBL_SetVnetAdapterAddr(const char *vnet, const char *value);
bool HBL_GetVnetAdapterAddr(const char *vnet, char *addr, uint32_t *len, bool computeDefault);

#ifdef __cplusplus
}
#endif
