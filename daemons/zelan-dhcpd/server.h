// The two programs that can serve DHCP, and how each is started for one network.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "daemons/common/daemon.h"
#include "daemons/common/traces.h"
#include "daemons/confinement/ownUser.h"
#include "lib/misc/owners.h"

struct ServerStart {
    const char *program = nullptr;
    const char *name = nullptr;  // of the network, and of the server's interface in its namespace
    std::string configuration;   // dhcpd.conf; from every folder, as are the leases
    std::string leases;
    std::vector<std::string> included;  // files that dhcpd.conf includes
    FileDescriptor leaseFile;
    FileDescriptor space;  // the network namespace that it is to run in
};

// By what a server tells that it serves.
enum class ServerSign { LEAVES_STANDARD_ERROR, WRITES_STANDARD_OUTPUT };

// What is different about the two.
struct Server {
    std::vector<std::string> arguments;
    FileDescriptor input;  // its standard input; empty for none
    FileDescriptor output;
    ServerSign sign = ServerSign::LEAVES_STANDARD_ERROR;
    std::function<bool()> confine;  // in its process and namespace; false after a line in the log
    void (*hint)() = nullptr;       // says what may have been in the way
};

// Where distributions and local builds put them; null when the program is not installed.
const char *Server_FindDnsmasq();
const char *Server_FindDhcpd();

// dnsmasq gets its configuration as a text, and runs as the user; dhcpd reads dhcpd.conf and runs as root,
// with the lease file's folder for all that it may write. `start` outlives them. Without an output, after a
// line in the log, when there is no memory for their files.
Server Server_Dnsmasq(ServerStart *start, const std::string &configuration, const OwnUser &user);
Server Server_Dhcpd(const ServerStart &start);

// Starts the server as the contract's daemon and waits until it serves. False after lines in the log, among
// them the server's own words; the server has been ended then.
bool Server_Start(const ServerStart &start, const Server &server, DaemonContract *contract,
                  const CleanUp &cleanUp);
