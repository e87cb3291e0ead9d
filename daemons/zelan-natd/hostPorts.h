// The host's ports that are forwarded to guests.
#pragma once

#include <vector>

#include "daemons/firewall/natShare.h"
#include "daemons/zelan-natd/natConf.h"
#include "lib/misc/owners.h"

struct HostPorts {
    std::vector<FileDescriptor> sockets;  // that hold them
    std::vector<PortForward> forwards;
    std::vector<HostEndpoint> kept;    // what other programs have of these ports
    std::vector<PortForward> awaited;  // those of which other programs have all, for now
};

// Takes the port of every forward. One that another program has at every address, or that leads to an address
// outside the guests' subnet, costs a line in the log and the forward, unless zelan-watch can take it up
// later. A program that has it at some addresses keeps those, after a line in the log: anybody may take a
// port of 127.0.0.1.
HostPorts HostPorts_Take(const NatConf &conf);
