// The host as the library tells it: what is configured and what runs, at one moment. This header and
// settings.h are what every other layer builds on.
//
// What it promises:
//  - ReadHost asks exported functions of the library alone, changes nothing and leaves no line in the log;
//  the
//    bridge mappings, for which no exported function exists, are read from the database file.
//  - Host::networks has one entry for each of the 256 networks, at its number.
//  - Processes are told by their PID files, as the library does; whether the process is the right program is
//    asked with ProcessOf (processes.h).
//  - Leases (leases.h), links and addresses of the kernel (links.h) and guests (guests.h) are read when asked
//    for, each from one place in one go.
#pragma once

#include <sys/types.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "apps/zelan/posix/harbrelctl/model/settings.h"

enum Service { SERVICE_BRIDGE, SERVICE_DHCP, SERVICE_NAT, SERVICE_ADAPTER, SERVICE_COUNT };

struct ServiceRow {
    const char *name;     // for people and in JSON
    uint32_t type;        // HBL_SERVICE_...
    const char *program;  // its daemon
};
extern const std::array<ServiceRow, SERVICE_COUNT> SERVICES;

struct ServiceState {
    bool configured = false;
    // A process has the number that the PID file names; of the adapter: its interface is up.
    bool running = false;
    bool unknown = false;  // the PID file has no number, or it cannot be asked
};

struct NetworkState {
    int number = 0;
    std::array<ServiceState, SERVICE_COUNT> services;
    std::vector<std::string> adapters;  // of the host, that exist and are on this network now

    bool IsRunning() const;  // any of its services
    bool AllConfiguredRun() const;
};

struct HostAdapter {
    std::string name;
    std::string driver;  // empty when unknown
    int network = NO_NETWORK;
    bool running = false;
};

struct Paths {
    std::string programs;  // folder of the daemons
    std::string pidFiles;  // RUNDIR
    std::string networks;  // CONFIGDIR
    std::string log;

    std::string DhcpConf(int network) const;
    std::string Leases(int network) const;
    std::string NatConf(int network) const;
    std::string Node(int network) const;
};

struct Host {
    Config config;
    std::array<NetworkState, NETWORK_COUNT> networks;
    std::vector<HostAdapter> adapters;
    bool detectionRuns = false;
    Paths paths;
    // Programs that give the PID files their names, which settings may change; by Service.
    std::array<std::string, SERVICE_COUNT> programNames;

    // Where the library looks for the process of a service.
    std::string PidFile(int network, Service service) const;
    // Whether there is anything to tell about the network: records, an adapter, something that runs.
    bool HasAnything(int network) const;
};

enum NetworkKind { KIND_NONE, KIND_BRIDGED, KIND_HOST_ONLY, KIND_NAT, KIND_CUSTOM };
NetworkKind KindOf(const Config &config, int network);
const char *KindName(NetworkKind kind);
