/*
 * The network library's exported interface: C11 and C++20.
 *
 * Conventions, which hold unless a function says otherwise:
 *
 *  - Rights. The process runs as root: a load needs to write to the database, its folder and the log.
 *  - Loading. HBL_Load comes first, and HBL_Unload takes it back. A function that is called without a load
 *    does nothing and returns false, or 0 where its result is no boolean.
 *  - Results. true is success. A failure returns false and writes its reason to the log at LOG_ERR; nothing
 *    is thrown, and the process is stopped only when memory runs out: from the load to the last unload a
 *    new-handler of the library stands, so that a failed operator new of the program itself, too, ends the
 *    process with exit status 1. The program's own handler stands again after that. Output arguments are set
 *    on success only. A null where an argument is needed is a failure.
 *  - The log is /var/log/harbrel, or the file that the answer HBL_LOG_FILE names. It is open from the load to
 *    the unload, and during those calls without a load that work on the database as a whole.
 *  - Networks are named "zelan0" to "zelan255", letters in any case. Any other name is refused.
 *  - Texts are NUL-terminated UTF-8. Those passed in are copied and stay the caller's. Text results go to the
 *    caller's buffer. `uint32_t *len` beside a buffer: in, the buffer's size in bytes; out, the text's length
 *    in bytes with its terminator. A result that does not fit is a failure and leaves *len as it was.
 *  - Addresses and masks are dotted IPv4 ("192.168.8.1") and need buffers of 16 bytes. MAC addresses are six
 *    hexadecimal fields of one or two digits with colons; those handed out are upper case with two digits a
 *    field and need 18 bytes.
 *  - The database is read into memory by the load. What this process changes is in the file when the call
 *    returns. What another process has changed is seen from the next call on that locks, or that adds or
 *    removes an answer.
 *  - Locking. "Locks" means that the call holds the database lock, which orders processes: it waits up to
 *    about 2.5 seconds for another process and fails after that. Load, unload and import take it as they say;
 *    all other calls take no lock.
 *  - Threads. Load, unload and all changes belong to one thread. Between its first load and its last unload
 *    other threads may call, at any moment and several at once, all functions that only read: those that
 *    neither lock nor add, remove, store, set, create or delete anything. Each record that they read is
 *    whole, the one before a change or the one after it; a call that reads several may see some before and
 *    some after.
 *  - A call that changes DHCP, NAT or adapter settings changes the database alone. The daemon's file or the
 *    interface follows on HBL_UpdateDHCPFromConfig, HBL_UpdateNATFromConfig or HBL_UpdateAdapterFromConfig.
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

/* Log levels: bits of the mask, which is LOG_ERR | LOG_WRN | LOG_OK unless the answer HBL_LOGLEVEL says
 * otherwise. syslog.h has the same names for other values, so a source file includes only one of both. */
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
       HBL_SERVICE_NETDETECT = 34821 /* one for the host: belongs to no network */
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

/* The caller clears the whole structure before filling in version and net, and for a search the query. */
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
    HBL_NetworkID net;     /* the network that the adapter is bridged to */
    uint32_t status;       /* 1 when the interface was running, 2 when not */
    char displayName[128]; /* as deviceName */
    char driverName[128];  /* empty when the driver could not be asked */
    char deviceName[128];  /* the interface name, which names the adapter everywhere */
} HBL_HostAdapter;
#pragma pack(pop)

/* One block with its records: HBL_FreeHostAdapterList, or one free(), releases it. */
typedef struct HBL_HostAdapterList {
    uint32_t version;       /* 1 */
    uint32_t count;         /* the number of adapters; with 0 `first` says nothing */
    HBL_HostAdapter *first; /* chained by `next`, null in the last */
} HBL_HostAdapterList;

/* ---- Lifecycle, answers, log ---- */

/* Opens the log, reads the networking database and the host configuration (/etc/orvane/config). May nest up
 * to 65535 deep: each success is matched by one HBL_Unload, and only the first does any work. Takes the
 * database lock for the reading. Fails when the log cannot be opened (then without a line in it), when there
 * is no database or none with a version line that can be read, and when the lock cannot be had. A host
 * configuration that is missing is a warning: the programs are then looked for in /usr/bin. */
HBL_CHECKED bool HBL_Load(void);

/* The one that matches the first HBL_Load writes the database out, sorted and without its journal, and closes
 * the log. Takes the database lock for the writing. When another process holds that, or the file cannot be
 * written, the file stays as it is, which loses nothing. Without a load it does nothing. */
HBL_API void HBL_Unload(void);

/* 256, loaded or not. */
HBL_API uint32_t HBL_GetNumVnets(void);

/* The value of an answer, by a key that is compared without regard to case. *value belongs to the library: it
 * is not freed, and stays as it is until the last HBL_Unload, whatever becomes of the answer meanwhile.
 * False without a line in the log when the key has no answer. */
HBL_CHECKED bool HBL_VnetCfgGetAnswer(const char *key, const char **value);

/* Adds an answer or replaces its value. A key has no blank and no line end, a value no line end, neither is
 * empty, and the line "answer KEY VALUE" has at most 2047 bytes. Neither is compared with the known keys and
 * their values. No lock, unless another process has put a new file in the database's place: then once. */
HBL_API bool HBL_VnetCfgAddAnswer(const char *key, const char *value);

/* Removes an answer; one that is not there is success. Locking as HBL_VnetCfgAddAnswer. */
HBL_API bool HBL_VnetCfgRemoveAnswer(const char *key);

/* Stores the mask, 0 to 127, that the next load sets. The running mask stays. Locks. */
HBL_API bool HBL_SetDefaultLogLevel(uint32_t level);

/* Sets the running mask, any value, until the next load sets it anew. Always true; needs no load. */
HBL_API bool HBL_SetLogLevel(uint32_t mask);

/* The running mask; needs no load. */
HBL_API uint32_t HBL_GetLogLevel(void);

/* ---- Services ---- */

/* `serviceType` is one of the service types. `vnet` may be null with HBL_SERVICE_NETDETECT alone. What runs
 * is known by PID files. */

/* One of the service status values: HBL_SERVICE_STATUS_ERROR also for a bad argument, 0 without a load. A
 * service that is stopped leaves lines at LOG_ERR too. */
HBL_CHECKED uint32_t HBL_GetServiceStatus(const char *vnet, uint32_t serviceType);

/* Kills the daemon, configured or not, and deletes its PID file. Does not wait: what the daemon has made
 * is removed a moment later. One that does not run is success. Locks. */
HBL_API bool HBL_StopService(const char *vnet, uint32_t serviceType);

/* Makes the device node, starts the daemon and waits until it reports that it is up, or has ended. All
 * services but HBL_SERVICE_NETDETECT must be configured, all but that and the bridge need a subnet, and DHCP
 * and NAT need their file from HBL_UpdateDHCPFromConfig or HBL_UpdateNATFromConfig. One that runs is success
 * and not touched. Locks. */
HBL_API bool HBL_StartService(const char *vnet, uint32_t serviceType);

/* Takes a network out of the configuration: bridge mappings, DHCP and NAT with their parameters and files,
 * adapter, subnet and device node. Adapters that were mapped to it go to the default bridge network; when it
 * is that itself, there is none any more. It refuses, with nothing changed, while a service of the network
 * runs or its interface exists; one that is going away with its stopped daemon is waited for, up to a second.
 * A failed step does not stop the others; the call may be repeated. Locks. */
HBL_API bool HBL_DeleteVnetFromDatabase(const char *vnet);

/* ---- The database as a whole ---- */

/* Makes a database without records at /etc/orvane/networking. An existing one is a failure, or with
 * `overwrite` is first moved to the first free name /etc/orvane/networking.bak.<N>, and put back when the new
 * one cannot be made. Only without a load. */
HBL_API bool HBL_CreateNetworkingDB(bool overwrite);

/* Deletes the database; a missing one is success. Only without a load, and so without a line in the log. */
HBL_API bool HBL_DeleteNetworkingDB(void);

/* Whether the database begins with a version line that this library reads. Needs no load. */
HBL_CHECKED bool HBL_CheckNetworkingDB(void);

/* Whether anything stands at the database's path. Needs no load. */
HBL_CHECKED bool HBL_NetworkingDBExists(void);

/* Makes the records of a backup file, or of an older database, the database; the former one is moved to the
 * first free name /etc/orvane/networking.bak.<N>, and put back after a failure. Keys that are unknown or
 * belong to one host are left out. `file` null means /tmp/networking_export; its folder must be writable, for
 * the lock. With and without a load; a loaded library goes on with the new records. Takes the lock while the
 * files are exchanged, and goes on without it when it cannot be had. */
HBL_CHECKED bool HBL_ImportDatabaseFromFile(const char *file);

/* Writes all records to a backup file. `file` null means /tmp/networking_export; an existing file is
 * overwritten and keeps its mode, a new one gets the mode 0665, and a failure leaves none. Locks. */
HBL_CHECKED bool HBL_ExportDatabaseToFile(const char *file);

/* ---- DHCP ---- */

/* Parameter ids, and what holds without a stored value. Any other id is a failure: the rest is set by
 * answers, see orvane-networking(5). Seconds are text from "0" to "2147483647", octal behind a 0 and
 * hexadecimal behind 0x; what has ten digits fails when the daemon's file is written, and the server reads
 * decimal digits alone. */
enum {
    HBL_PARAM_DHCP_FIRST_ADDRESS = 13350, /* of the lease range: the upper half of the subnet */
    HBL_PARAM_DHCP_LAST_ADDRESS = 13351,
    HBL_PARAM_DHCP_DEFAULT_LEASE = 13354, /* seconds: 1800 */
    HBL_PARAM_DHCP_LONGEST_LEASE = 13355  /* seconds: 7200 */
};

/* Turns DHCP on or off. Turning it on gives a network without a subnet an unused one as
 * HBL_AssignSubnetAddressToVnet does. `cleanup` also removes all parameters and static mappings, even where
 * DHCP is as asked for already. Locks, during the probing too. */
HBL_API bool HBL_SetVnetUseDHCP(const char *vnet, bool useDHCP, bool cleanup);

/* Whether DHCP is on in the configuration; false also for a bad argument. */
HBL_CHECKED bool HBL_GetVnetUseDHCP(const char *vnet);

/* Stores the first `paramLen` bytes of `param`, or those before its terminator. An address is checked for its
 * form, not against the subnet. `param` null removes the stored value, also when there is none; `paramLen` is
 * not used then. Locks. */
HBL_API bool HBL_SetDHCPParam(const char *vnet, uint32_t paramID, const char *param, uint32_t paramLen);

/* The stored value; without one the default if `useDefault`, else a failure. The default of an address needs
 * a subnet of at least 8 addresses. */
HBL_CHECKED bool HBL_GetDHCPParam(const char *vnet, uint32_t paramID, bool useDefault, char *param,
                                  uint32_t *paramLen);

/* Ties an address to a MAC address, replacing the one it has. The address is not checked against the subnet
 * or other ties. `ip` null removes the tie, and fails when there is none. Locks. */
HBL_API bool HBL_SetDHCPIPToMAC(const char *vnet, const char *ip, const char *mac);

/* The address tied to a MAC address. *ipLen is at least 16. */
HBL_CHECKED bool HBL_GetDHCPIPToMAC(const char *vnet, char *ip, uint32_t *ipLen, const char *mac);

/* One static mapping after another, in no particular order: *enumOffset starts at 0 and is moved on by each
 * success; false at the end. A change in between may skip or repeat a mapping. *ipLen is at least 16, *macLen
 * at least 18. */
HBL_CHECKED bool HBL_EnumDHCPIPToMAC(const char *vnet, uint32_t *enumOffset, char *ip, uint32_t *ipLen,
                                     char *mac, uint32_t *macLen);

/* Writes the daemon's configuration file <CONFIGDIR>/zelan<N>/dhcpd/dhcpd.conf, with a copy of the former one
 * in dhcpd.conf.bak, or removes it when DHCP is off. Text outside the library's block stays; when the block
 * was edited the file is written afresh, and the edited one is in the copy until the next call. The service
 * must be stopped. Locks. */
HBL_API bool HBL_UpdateDHCPFromConfig(const char *vnet);

/* ---- NAT ---- */

/* Parameter ids, and what holds without a stored value. Any other id is a failure. */
enum {
    HBL_PARAM_NAT_GATEWAY = 9027,     /* address: the subnet's plus 2 */
    HBL_PARAM_NAT_CONFIG_PORT = 9030, /* "1" to "65535"; stored, but nothing uses it */
    HBL_PARAM_NAT_ACTIVE_FTP = 9031,  /* "0" or "1": 1 */
    HBL_PARAM_NAT_ANY_OUI = 9032,     /* any vendor's MAC address, "0" or "1": 1 */
    HBL_PARAM_NAT_UDP_TIMEOUT = 9033  /* seconds as above, 0 for none: 60 */
};

/* As HBL_SetVnetUseDHCP; `cleanup` also removes all parameters and port forwards. Locks. */
HBL_API bool HBL_SetVnetUseNAT(const char *vnet, bool useNAT, bool cleanup);

/* Whether NAT is on in the configuration; false also for a bad argument. */
HBL_CHECKED bool HBL_GetVnetUseNAT(const char *vnet);

/* As HBL_SetDHCPParam. Locks. */
HBL_API bool HBL_SetNATParam(const char *vnet, uint32_t paramID, const char *param, uint32_t paramLen);

/* As HBL_GetDHCPParam; the default of the gateway's address needs a subnet. */
HBL_CHECKED bool HBL_GetNATParam(const char *vnet, uint32_t paramID, bool useDefault, char *param,
                                 uint32_t *paramLen);

/* Forwards a TCP (`tcp`) or UDP port of the host, 1 to 65535, to a port of a guest, 1 to 65535, replacing the
 * forward that the port has on this network. `description` is `descLen` bytes, at most 127, without a line
 * end and without need of a terminator; null or a length of 0 gives none. `vmIP` null removes the forward,
 * and fails when there is none; vmPort is not used then, a description only checked for its length. Locks. */
HBL_API bool HBL_SetNATPortForward(const char *vnet, bool tcp, uint16_t hostPort, const char *vmIP,
                                   uint16_t vmPort, const char *description, uint32_t descLen);

/* The forward of a port. *vmIPLen is at least 16. `description` may be null, and `descLen` is not used then;
 * a description that does not fit *descLen makes the call fail. When the forward has none, *descLen comes
 * back as 0 and the buffer as it was; 128 bytes hold every description. */
HBL_CHECKED bool HBL_GetNATPortForward(const char *vnet, bool tcp, uint16_t hostPort, char *vmIP,
                                       uint32_t *vmIPLen, uint16_t *vmPort, char *description,
                                       uint32_t *descLen);

/* One TCP or UDP forward of the network after another, as HBL_EnumDHCPIPToMAC; buffers as
 * HBL_GetNATPortForward. `hostPort` is not tested for null. */
HBL_CHECKED bool HBL_EnumNATPortForward(const char *vnet, bool tcp, uint32_t *enumOffset, uint16_t *hostPort,
                                        char *vmIP, uint32_t *vmIPLen, uint16_t *vmPort, char *description,
                                        uint32_t *descLen);

/* Writes the daemon's configuration file <CONFIGDIR>/zelan<N>/nat/nat.conf afresh, with a copy of the former
 * one in nat.conf.bak, or removes it when NAT is off. The service must be stopped. Locks. */
HBL_API bool HBL_UpdateNATFromConfig(const char *vnet);

/* ---- Subnets ---- */

/* Gives the network a subnet as HBL_GetUnusedSubnet finds it. One that has a subnet keeps it, unless
 * `overwriteExisting`. Locks, during the probing too. */
HBL_API bool HBL_AssignSubnetAddressToVnet(const char *vnet, bool overwriteExisting);

/* Whether nothing answers on the network's subnet, which must be configured. *available: true for a free
 * subnet; false for a busy one and for one that could not be asked about. The subnet's first address is
 * pinged every `interval` seconds for `timeout` seconds, both from 1 to 86400, and with `broadcast` the whole
 * subnet before that for as long again. Blocks meanwhile; may run in several threads. */
HBL_CHECKED bool HBL_CheckSubnetAvailability(const char *vnet, bool broadcast, uint32_t timeout,
                                             uint32_t interval, bool *available);

/* A subnet of 192.168.0.0/16 or 172.16.0.0/16 that no network had configured at the first search and nothing
 * answers on, and its mask, always 255.255.255.0. Both lengths are sizes of at least 16. No subnet is handed
 * out twice by one process, used or not. Fails when ten in turn are in use. Blocks while it pings, up to four
 * seconds for each. */
HBL_CHECKED bool HBL_GetUnusedSubnet(char *subnet, uint32_t subnetLen, char *mask, uint32_t maskLen);

/* ---- Host-only adapters and device nodes ---- */

/* Makes the device node, starts the netifup daemon and brings the interface up with the configured addresses.
 * The adapter must be configured. An interface that is up is success and not touched. After a failure a
 * daemon that the call has started is stopped again. Locks. */
HBL_API bool HBL_EnableNetworkAdapter(const char *vnet);

/* Takes the interface down and stops the netifup daemon, configured or not; the device node stays. True when
 * the daemon is stopped, which removes the interface. An interface that does not exist is success. Locks. */
HBL_API bool HBL_DisableNetworkAdapter(const char *vnet);

/* Makes an interface that is up follow the configuration: takes it down and up again, or down for good, with
 * its daemon, when no adapter is configured any more. One that is down is left alone. Locks. */
HBL_API bool HBL_UpdateAdapterFromConfig(const char *vnet);

/* *installed: an adapter is configured; *enabled: it is, and its interface is up. When the interface cannot
 * be asked the call fails, with *installed set. */
HBL_CHECKED bool HBL_GetVnetAdapterStatus(const char *vnet, bool *installed, bool *enabled);

/* Makes /dev/zelan<N>, a character device of mode 0600; one that exists is success. */
HBL_API bool HBL_CreateZelanDevice(const char *vnet);

/* Deletes /dev/zelan<N>; a missing one is success. */
HBL_API bool HBL_DeleteZelanDevice(const char *vnet);

/* Configures a host-only adapter or takes it out of the configuration; subnet and locking as in
 * HBL_SetVnetUseDHCP. `cleanup` also removes the adapter's stored address and name. */
HBL_API bool HBL_SetVnetUseAdapter(const char *vnet, bool useAdapter, bool cleanup);

/* ---- Host adapters and bridging ---- */

/* The host's Ethernet adapters at this moment, without those whose names begin with "zelan". `version` is 1.
 * *header is the caller's, to be released by HBL_FreeHostAdapterList. The kernel is asked for one datagram:
 * on a host with many interfaces some may be missing. */
HBL_CHECKED bool HBL_GetHostAdapterList(uint32_t version, HBL_HostAdapterList **header);

/* Releases a list; null is allowed. Needs no load. */
HBL_API void HBL_FreeHostAdapterList(HBL_HostAdapterList *header);

/* The network that takes every adapter without a mapping of its own: vnet 0 or HBL_VNET_NONE. *netId comes in
 * with version 1; type and vnet are filled in. Fails when the stored value is neither. */
HBL_CHECKED bool HBL_GetBridgeDefaultNetwork(HBL_NetworkID *netId);

/* Makes vnet 0 that network, or with HBL_VNET_NONE none; *netId has version 1 and type 1. The adapters of the
 * moment that no other network has are on vnet 0 afterwards in either case: without a default network those
 * that it had get a mapping to it, and with one those that were mapped to none do. Restarts the bridge
 * daemons concerned that run. A failure puts everything back, but an adapter without a mapping may come out
 * with one to the network that it is on. Locks. */
HBL_API bool HBL_SetBridgeDefaultNetwork(const HBL_NetworkID *netId);

/* Moves an adapter, of which version and deviceName count, from one network to another. `source` null: the
 * one that it is on; a given one must be that. `destination` null: the default network; a vnet of
 * HBL_VNET_NONE: no network. Adapters that were on a destination other than the default go to the default.
 * The adapter need not exist at the moment; its name ends within deviceName. Restarts the bridge daemons
 * concerned that run. A failure puts everything back, but as above. Locks. */
HBL_API bool HBL_BridgeMoveAdapter(const HBL_HostAdapter *adapter, const HBL_NetworkID *source,
                                   const HBL_NetworkID *destination);

/* ---- Features and addresses ---- */

/* What the network ft->net.vnet, 0 to 255, is configured to do and what runs on it: each byte 1 or 0. Fails
 * when the interface cannot be asked about; what was filled before stays filled. */
HBL_CHECKED bool HBL_GetVnetFeatures(HBL_VnetFeatures *ft);

/* The first network from ft->net.vnet, 0 to 255, up that matches the query values in the nine feature bytes;
 * they are then replaced by its features, 1 and 0, and net.vnet by its number. False also when none matches;
 * *ft is as it was then. */
HBL_CHECKED bool HBL_FindVnetWithFeatures(HBL_VnetFeatures *ft);

/* The setters store a valid address or mask, or with null remove what is stored, which is success also when
 * there is nothing. A mask is one run of ones, up to 255.255.255.248; that they are in front is not checked,
 * nor that addresses and mask fit each other. Nothing that runs is touched. Lock. */
HBL_API bool HBL_SetVnetSubnetAddr(const char *vnet, const char *value);
HBL_API bool HBL_SetVnetSubnetMask(const char *vnet, const char *value);
HBL_API bool HBL_SetVnetAdapterAddr(const char *vnet, const char *value);

/* The getters give what is stored, and fail when nothing is. *len is at least 16. */
HBL_CHECKED bool HBL_GetVnetSubnetAddr(const char *vnet, char *addr, uint32_t *len);
HBL_CHECKED bool HBL_GetVnetSubnetMask(const char *vnet, char *mask, uint32_t *len);
/* Without a stored address `computeDefault` gives the first one of the subnet. */
HBL_CHECKED bool HBL_GetVnetAdapterAddr(const char *vnet, char *addr, uint32_t *len, bool computeDefault);

#ifdef __cplusplus
}
#endif
