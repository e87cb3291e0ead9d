// The two programs that can serve DHCP, and how each is started for one network.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "daemons/confinement/ownUser.h"
#include "lib/misc/owners.h"

struct ServerStart {
    const char *program = nullptr;
    const char *name = nullptr;           // of the network, and of the server's interface in its namespace
    const char *configuration = nullptr;  // dhcpd.conf
    const char *leases = nullptr;
    std::vector<std::string> included;  // files that dhcpd.conf includes
    FileDescriptor leaseFile;
    FileDescriptor space;  // the network namespace that it is to run in
};

// Where distributions and local builds put them; null when the program is not installed.
const char *Server_FindDnsmasq();
const char *Server_FindDhcpd();

// Start the server, a child of the caller, and wait until it serves. Return its process id, or 0 after lines
// in the log, among them the server's own words. dnsmasq gets its configuration as a text, and runs as the
// user; dhcpd reads dhcpd.conf and runs as root, with the lease file's folder for all that it may write.
pid_t Server_StartDnsmasq(const ServerStart &start, const std::string &configuration, const OwnUser &user);
pid_t Server_StartDhcpd(const ServerStart &start);
