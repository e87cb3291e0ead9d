// Programs of the host that listen on a port.
#pragma once

#include <vector>

#include "daemons/firewall/natShare.h"

struct HostListeners {
    bool everywhere = false;      // some program does at every address
    std::vector<Ipv4> addresses;  // where others do
};

// As the files below /proc/net show them. Sockets that are connected to somebody do not count: a forward
// takes nothing from them.
HostListeners HostListeners_Of(const HostPort &port);
