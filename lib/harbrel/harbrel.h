/*
 * The network library's exported interface: C11 and C++20.
 *
 * Conventions, which hold unless a function says otherwise:
 *
 *  - Loading. HBL_Load comes first, and HBL_Unload takes it back. A function that is called without a load
 *    does nothing and returns false, or 0 where its result is no boolean.
 *  - Results. true is success. A failure returns false and writes its reason to the log at LOG_ERR; nothing
 *    is thrown, and the process is stopped only when memory runs out. Output arguments are set on success
 *    only.
 *  - Networks are named "zelan0" to "zelan255", letters in any case. A null or other name is refused.
 *  - Texts are NUL-terminated UTF-8. Those passed in are copied and stay the caller's. Text results go to the
 *    caller's buffer. `uint32_t *len` beside a buffer: in, the buffer's size in bytes; out, the text's length
 *    with its terminator. A result that does not fit is a failure and leaves *len as it was.
 *  - Addresses and masks are dotted IPv4 ("192.168.8.1") and need buffers of 16 bytes. MAC addresses are six
 *    hexadecimal fields with colons; those handed out are upper case with two digits a field and need 18
 *    bytes.
 *  - Locking. "Locks" means that the call holds the database lock, which orders processes: it waits up to
 *    about 2.5 seconds for another process and fails after that. All other calls take no lock.
 *  - Threads. Load, unload and all changes belong to one thread. Other threads may read meanwhile.
 *  - A call that changes DHCP, NAT or adapter settings changes the database alone. The daemon's file or the
 *    interface follows on HBL_UpdateDHCPFromConfig, HBL_UpdateNATFromConfig or HBL_UpdateAdapterFromConfig.
 *  - The log is /var/log/harbrel, or the file that the answer HBL_LOG_FILE names.
 */
#pragma once
#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
/* Exactly the functions of this header are visible in the shared library. */
#define HBL_API __attribute__((visibility("default")))
/* For functions whose result or output means nothing without a look at what they return. */
#define HBL_CHECKED __attribute__((visibility("default"), warn_unused_result))
#else
#define HBL_API
#define HBL_CHECKED
#endif

#define HBL_VNET_NONE (-1)       /* a vnet number: no network */
#define HBL_NETWORK_TYPE_VNET 1u /* HBL_NetworkID.type */

/* Log levels: bits of the mask. The names are those of syslog.h too, so one file includes only one of both.
 */
enum {
    LOG_ERR = 1,    /* failures */
    LOG_INFO = 2,   /* notable steps */
    LOG_ERRCMN = 4, /* a line of HBL_Load that shows the bit */
    LOG_WRN = 8,    /* warnings */
    LOG_OK = 16,    /* an operation has succeeded */
    LOG_INFO2 = 32, /* trace */
    LOG_ARGS = 64   /* arguments of exported functions */
};
enum { /* service types */
       HBL_SERVICE_BRIDGE = 34817,
       HBL_SERVICE_DHCP = 34818,
       HBL_SERVICE_NAT = 34819,
       HBL_SERVICE_NETIFUP = 34820,  /* holds the host-only interface in being */
       HBL_SERVICE_NETDETECT = 34821 /* one for the host, belongs to no network */
};
enum { /* service status */
       HBL_SERVICE_STATUS_STOPPED = 33796,
       HBL_SERVICE_STATUS_RUNNING = 33800,
       HBL_SERVICE_STATUS_ERROR = 33824 /* it could not be found out */
};
enum { /* query values of HBL_FindVnetWithFeatures */
       HBL_FEATURE_ANY = 0,
       HBL_FEATURE_YES = 1,
       HBL_FEATURE_NO = 2
};

typedef struct HBL_NetworkID {
    uint32_t version; /* 1 */
    uint32_t type;    /* HBL_NETWORK_TYPE_VNET */
    int32_t vnet;     /* 0 to 255, or HBL_VNET_NONE */
    uint8_t reserved[16];
} HBL_NetworkID;

typedef struct HBL_FeatureGroup {
    uint8_t dhcp, nat, bridge, hostOnlyAdapter;
    uint8_t reserved[28]; /* zero */
} HBL_FeatureGroup;

/* The caller clears the whole structure before filling it. */
typedef struct HBL_VnetFeatures {
    uint32_t version;         /* 1 */
    HBL_NetworkID net;        /* type 1; the network asked for, or where a search starts */
    uint8_t subnet;           /* a subnet is configured */
    HBL_FeatureGroup config;  /* what is configured */
    HBL_FeatureGroup runtime; /* whose daemon runs; hostOnlyAdapter: the interface is up */
} HBL_VnetFeatures;

#pragma pack(push, 1)
typedef struct HBL_HostAdapter { /* without gaps */
    uint32_t version;            /* 1 */
    struct HBL_HostAdapter *next;
    HBL_NetworkID net; /* the network that the adapter is bridged to */
    uint32_t status;   /* 1 when the interface was running, 2 when not */
    char displayName[128];
    char driverName[128]; /* empty when the driver could not be asked */
    char deviceName[128]; /* the interface name, which names the adapter everywhere */
} HBL_HostAdapter;
#pragma pack(pop)

/* One block with its records: HBL_FreeHostAdapterList, or one free(), releases it. */
typedef struct HBL_HostAdapterList {
    uint32_t version;       /* 1 */
    uint32_t count;         /* the number of adapters; with 0 `first` says nothing */
    HBL_HostAdapter *first; /* chained by `next`, null in the last */
} HBL_HostAdapterList;

/* ---- Lifecycle, answers, log ---- */

/* Opens the log, reads the networking database and the host configuration. May nest: each success is matched
 * by one HBL_Unload, and only the first does any work. Takes the database lock for the reading. */
HBL_CHECKED bool HBL_Load(void);

/* The one that matches the first HBL_Load writes the database out, sorted and without its journal, and closes
 * the log. Takes the database lock for the writing, and leaves the file as it is when another process holds
 * that. Without a load it does nothing. */
HBL_API void HBL_Unload(void);

/* 256, loaded or not. */
HBL_API uint32_t HBL_GetNumVnets(void);

/* The value of an answer, by a key that is compared without regard to case. *value belongs to the library: it
 * is neither freed nor used after the answer has changed or after HBL_Unload. False without a line in the log
 * when the key has no answer. */
HBL_CHECKED bool HBL_VnetCfgGetAnswer(const char *key, const char **value);

/* Adds an answer or replaces its value. A key has no blank, a value no line end, neither is empty, and the
 * line of both stays under 2048 bytes. No lock. */
HBL_API bool HBL_VnetCfgAddAnswer(const char *key, const char *value);

/* Removes an answer; one that is not there is success. No lock. */
HBL_API bool HBL_VnetCfgRemoveAnswer(const char *key);

/* Stores the mask, 0 to 127, that the next load starts with. The running mask stays. Locks. */
HBL_API bool HBL_SetDefaultLogLevel(uint32_t level);

/* Sets the running mask, any value. Always true; needs no load. */
HBL_API bool HBL_SetLogLevel(uint32_t mask);

/* The running mask; needs no load. */
HBL_API uint32_t HBL_GetLogLevel(void);

/* ---- Services ---- */

/* `vnet` may be null with HBL_SERVICE_NETDETECT alone, which belongs to no network. */

/* One of the service status values: HBL_SERVICE_STATUS_ERROR also for a bad argument, 0 without a load. */
HBL_CHECKED uint32_t HBL_GetServiceStatus(const char *vnet, uint32_t serviceType);

/* Stops the daemon, configured or not. One that does not run is success. Locks. */
HBL_API bool HBL_StopService(const char *vnet, uint32_t serviceType);

/* Starts the daemon of a service that is configured, with a subnet unless it is the bridge, and for DHCP and
 * NAT with its configuration file. One that runs is success and not touched. Locks. */
HBL_API bool HBL_StartService(const char *vnet, uint32_t serviceType);

/* Takes a network out of the configuration: bridge mappings, DHCP, NAT, adapter, subnet and device node. It
 * refuses, with nothing changed, while a service of the network runs or its interface exists. A failed step
 * does not stop the others; the call may be repeated. Locks. */
HBL_API bool HBL_DeleteVnetFromDatabase(const char *vnet);

/* ---- The database as a whole ---- */

/* Makes a database without records at /etc/orvane/networking. An existing one is a failure, or with
 * `overwrite` is first moved to the first free name /etc/orvane/networking.bak.<N>. Only without a load. */
HBL_API bool HBL_CreateNetworkingDB(bool overwrite);

/* Deletes the database; a missing one is success. Only without a load. */
HBL_API bool HBL_DeleteNetworkingDB(void);

/* Whether the database begins with a version line that this library reads. Needs no load. */
HBL_CHECKED bool HBL_CheckNetworkingDB(void);

/* Whether anything stands at the database's path. Needs no load. */
HBL_CHECKED bool HBL_NetworkingDBExists(void);

/* Makes the records of a backup file, or of an older database, the database; the former one is moved to the
 * first free name /etc/orvane/networking.bak.<N>, and put back after a failure. `file` null means
 * /tmp/networking_export. With and without a load; a loaded library goes on with the new records. */
HBL_CHECKED bool HBL_ImportDatabaseFromFile(const char *file);

/* Writes all records to a backup file. `file` null means /tmp/networking_export; an existing file is
 * overwritten, and a failure leaves none. Locks. */
HBL_CHECKED bool HBL_ExportDatabaseToFile(const char *file);

/* ---- DHCP ---- */

/* Parameter ids: 13350 first and 13351 last address of the lease range, 13354 default and 13355 longest lease
 * in seconds. */

/* Turns DHCP on or off. Turning it on gives a network without a subnet an unused one, which takes probing.
 * `cleanup` also removes all parameters and static mappings. Locks. */
HBL_API bool HBL_SetVnetUseDHCP(const char *vnet, bool useDHCP, bool cleanup);

/* Whether DHCP is on; false also for a bad argument. */
HBL_CHECKED bool HBL_GetVnetUseDHCP(const char *vnet);

/* Stores the first `paramLen` bytes of `param`, which needs no terminator. `param` null removes the stored
 * value. Locks. */
HBL_API bool HBL_SetDHCPParam(const char *vnet, uint32_t paramID, const char *param, uint32_t paramLen);

/* The stored value; without one the computed default if `useDefault`, else a failure. */
HBL_CHECKED bool HBL_GetDHCPParam(const char *vnet, uint32_t paramID, bool useDefault, char *param,
                                  uint32_t *paramLen);

/* Ties an address to a MAC address, replacing the one it has. `ip` null removes the tie, and fails when there
 * is none. Locks. */
HBL_API bool HBL_SetDHCPIPToMAC(const char *vnet, const char *ip, const char *mac);

/* The address tied to a MAC address. *ipLen is at least 16. */
HBL_CHECKED bool HBL_GetDHCPIPToMAC(const char *vnet, char *ip, uint32_t *ipLen, const char *mac);

/* One static mapping after another: *enumOffset starts at 0 and is moved on by each success; false at the
 * end. A change in between may skip or repeat a mapping. *ipLen is at least 16, *macLen at least 18. */
HBL_CHECKED bool HBL_EnumDHCPIPToMAC(const char *vnet, uint32_t *enumOffset, char *ip, uint32_t *ipLen,
                                     char *mac, uint32_t *macLen);

/* Writes the daemon's configuration file, or removes it when DHCP is off. The service must be stopped.
 * Locks. */
HBL_API bool HBL_UpdateDHCPFromConfig(const char *vnet);

/* ---- NAT ---- */

/* Parameter ids: 9027 the gateway's address, 9030 configuration port, 9031 active FTP ("0" or "1"), 9032 any
 * vendor's MAC address ("0" or "1"), 9033 UDP time-out in seconds. */

/* As HBL_SetVnetUseDHCP; `cleanup` also removes all parameters and port forwards. Locks. */
HBL_API bool HBL_SetVnetUseNAT(const char *vnet, bool useNAT, bool cleanup);

/* Whether NAT is on; false also for a bad argument. */
HBL_CHECKED bool HBL_GetVnetUseNAT(const char *vnet);

/* As HBL_SetDHCPParam. Locks. */
HBL_API bool HBL_SetNATParam(const char *vnet, uint32_t paramID, const char *param, uint32_t paramLen);

/* As HBL_GetDHCPParam. */
HBL_CHECKED bool HBL_GetNATParam(const char *vnet, uint32_t paramID, bool useDefault, char *param,
                                 uint32_t *paramLen);

/* Forwards a TCP or UDP port of the host, 1 to 65535, to a port of a guest, replacing the forward that the
 * port has. `description` is `descLen` bytes, at most 127, without need of a terminator; null or a length of
 * 0 gives none. `vmIP` null removes the forward, and fails when there is none. Locks. */
HBL_API bool HBL_SetNATPortForward(const char *vnet, bool tcp, uint16_t hostPort, const char *vmIP,
                                   uint16_t vmPort, const char *description, uint32_t descLen);

/* The forward of a port. *vmIPLen is at least 16. `description` may be null; a description that does not fit
 * *descLen makes the call fail, and *descLen comes back as 0 when the forward has none. */
HBL_CHECKED bool HBL_GetNATPortForward(const char *vnet, bool tcp, uint16_t hostPort, char *vmIP,
                                       uint32_t *vmIPLen, uint16_t *vmPort, char *description,
                                       uint32_t *descLen);

/* One forward after another, as HBL_EnumDHCPIPToMAC; buffers as HBL_GetNATPortForward. */
HBL_CHECKED bool HBL_EnumNATPortForward(const char *vnet, bool tcp, uint32_t *enumOffset, uint16_t *hostPort,
                                        char *vmIP, uint32_t *vmIPLen, uint16_t *vmPort, char *description,
                                        uint32_t *descLen);

/* Writes the daemon's configuration file, or removes it when NAT is off. The service must be stopped.
 * Locks. */
HBL_API bool HBL_UpdateNATFromConfig(const char *vnet);

/* ---- Subnets ---- */

/* Gives the network an unused subnet, found by probing. One that has a subnet keeps it, unless
 * `overwriteExisting`. Locks, during the probing too. */
HBL_API bool HBL_AssignSubnetAddressToVnet(const char *vnet, bool overwriteExisting);

/* Whether nothing answers on the network's subnet; *available is set on success, free or busy. `timeout` and
 * `interval` are seconds; `broadcast` asks by a broadcast ping. Blocks while it pings; may run in several
 * threads. */
HBL_CHECKED bool HBL_CheckSubnetAvailability(const char *vnet, bool broadcast, uint32_t timeout,
                                             uint32_t interval, bool *available);

/* A subnet that no network has configured and nothing answers on, with its mask. Both lengths are sizes of at
 * least 16. No subnet is handed out twice by one process, used or not. Blocks while it pings. */
HBL_CHECKED bool HBL_GetUnusedSubnet(char *subnet, uint32_t subnetLen, char *mask, uint32_t maskLen);

/* ---- Host-only adapters and device nodes ---- */

/* Makes the device node, starts the netifup daemon and brings the interface up with the configured addresses.
 * An interface that is up is success and not touched. Locks. */
HBL_API bool HBL_EnableNetworkAdapter(const char *vnet);

/* Takes the interface down and stops the netifup daemon; the device node stays. An interface that does not
 * exist is success. Locks. */
HBL_API bool HBL_DisableNetworkAdapter(const char *vnet);

/* Makes an interface that is up follow the configuration: takes it down and up again, or down for good when
 * no adapter is configured any more. Locks. */
HBL_API bool HBL_UpdateAdapterFromConfig(const char *vnet);

/* *installed: an adapter is configured; *enabled: its interface is up. When the interface cannot be asked the
 * call fails, with *installed set. */
HBL_CHECKED bool HBL_GetVnetAdapterStatus(const char *vnet, bool *installed, bool *enabled);

/* Makes /dev/zelan<N>; one that exists is success. */
HBL_API bool HBL_CreateZelanDevice(const char *vnet);

/* Deletes /dev/zelan<N>; a missing one is success. */
HBL_API bool HBL_DeleteZelanDevice(const char *vnet);

/* Configures a host-only adapter or takes it out of the configuration. Turning it on gives a network without
 * a subnet an unused one. `cleanup` also removes the adapter's stored address and name. Locks. */
HBL_API bool HBL_SetVnetUseAdapter(const char *vnet, bool useAdapter, bool cleanup);

/* ---- Host adapters and bridging ---- */

/* The host's Ethernet adapters at this moment. `version` is 1. *header is the caller's, to be released by
 * HBL_FreeHostAdapterList. */
HBL_CHECKED bool HBL_GetHostAdapterList(uint32_t version, HBL_HostAdapterList **header);

/* Releases a list; null is allowed. Needs no load. */
HBL_API void HBL_FreeHostAdapterList(HBL_HostAdapterList *header);

/* The network that takes every adapter without a mapping of its own: vnet 0 or HBL_VNET_NONE. *netId comes in
 * with version 1. */
HBL_CHECKED bool HBL_GetBridgeDefaultNetwork(HBL_NetworkID *netId);

/* Makes vnet 0 that network, or with HBL_VNET_NONE none. Restarts the bridge daemons concerned; a failure
 * puts everything back. Locks. */
HBL_API bool HBL_SetBridgeDefaultNetwork(const HBL_NetworkID *netId);

/* Moves an adapter, of which version and deviceName count, from one network to another. `source` null: the
 * one that it is on; a given one must be that. `destination` null: the default network. An adapter that was
 * on a destination other than the default goes to the default. Restarts the bridge daemons concerned; a
 * failure puts everything back. Locks. */
HBL_API bool HBL_BridgeMoveAdapter(const HBL_HostAdapter *adapter, const HBL_NetworkID *source,
                                   const HBL_NetworkID *destination);

/* ---- Features and addresses ---- */

/* What the network ft->net.vnet is configured to do and what runs on it: each byte 1 or 0. What was filled
 * before a failure stays filled. */
HBL_CHECKED bool HBL_GetVnetFeatures(HBL_VnetFeatures *ft);

/* The first network from ft->net.vnet up that matches the query values in the nine feature bytes; they are
 * then replaced by its features, 1 and 0, and net.vnet by its number. False also when none matches. */
HBL_CHECKED bool HBL_FindVnetWithFeatures(HBL_VnetFeatures *ft);

/* The setters store a valid address or mask, or with null remove what is stored. They do not check that the
 * addresses fit each other, and touch nothing that runs. Lock. */
HBL_API bool HBL_SetVnetSubnetAddr(const char *vnet, const char *value);
HBL_API bool HBL_SetVnetSubnetMask(const char *vnet, const char *value);
HBL_API bool HBL_SetVnetAdapterAddr(const char *vnet, const char *value);

/* The getters give what is stored. *len is at least 16. */
HBL_CHECKED bool HBL_GetVnetSubnetAddr(const char *vnet, char *addr, uint32_t *len);
HBL_CHECKED bool HBL_GetVnetSubnetMask(const char *vnet, char *mask, uint32_t *len);
/* Without a stored address `computeDefault` gives the first one of the subnet. */
HBL_CHECKED bool HBL_GetVnetAdapterAddr(const char *vnet, char *addr, uint32_t *len, bool computeDefault);

#ifdef __cplusplus
}
#endif
