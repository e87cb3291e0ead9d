// The two programs that can serve DHCP, and how each is started for one network.
#pragma once

#include <sys/types.h>

#include <string>

#include "daemons/confinement/ownUser.h"
#include "lib/misc/owners.h"

struct ServerStart {
    const char *program = nullptr;
    const char *name = nullptr;           // of the network, and of the server's interface in its namespace
    const char *configuration = nullptr;  // dhcpd.conf
    const char *leases = nullptr;
    const char *pidFile = nullptr;
    FileDescriptor leaseFile;
    FileDescriptor space;  // the network namespace that it is to run in
};

// Where distributions and local builds put them; null when the program is not installed.
const char *Server_FindDnsmasq();
const char *Server_FindDhcpd();

// Start the server, a child of the caller, and wait until it serves. Return its process id, or 0 after lines
// in the log, among them the server's own words. dnsmasq gets its configuration as a text, and runs as the
// user; dhcpd reads dhcpd.conf, runs as root, and has written the PID file.
pid_t Server_StartDnsmasq(const ServerStart &start, const std::string &configuration, const OwnUser &user);
pid_t Server_StartDhcpd(const ServerStart &start);

// The process id in a PID file; 0 for none.
pid_t Server_ReadPidFile(const char *path);
