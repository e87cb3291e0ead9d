// The host's ports that are forwarded to guests.
#pragma once

#include <vector>

#include "daemons/zelan-natd/natConf.h"
#include "lib/misc/owners.h"

// Ports held on behalf of the forwards. The packets never reach these sockets: they keep other programs, and
// other networks' forwards, from a port that would not hear anything, and show an administrator who has it.
struct HostPorts {
    std::vector<FileDescriptor> sockets;
    std::vector<PortForward> forwards;
};

// Takes the port of every forward. One that another program has, or that leads to an address outside the
// guests' subnet, costs a line in the log and the forward.
HostPorts HostPorts_Take(const NatConf &conf);
