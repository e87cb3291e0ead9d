// What else uses addresses and ports on this host.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "apps/zelan/posix/harbrelctl/model/links.h"
#include "apps/zelan/posix/harbrelctl/model/network.h"

struct ForeignSubnet {
    Subnet subnet;
    std::string owner;  // "the bridge docker0", "a route by eth0"
};

struct UsedPort {
    bool tcp = true;
    uint16_t port = 0;
    std::string owner;  // "sshd (812)"
};

struct Surroundings {
    std::vector<ForeignSubnet> subnets;  // of links that are none of ours, without the loopback
    std::vector<UsedPort> ports;         // on which something other than a NAT daemon of ours listens
};

// The library asks the kernel for as many interfaces as one message holds. Adds the Ethernet adapters that
// are missing from the host's list for that reason; pure.
void AddMissingAdapters(const KernelView &kernel, Host *host);

// Subnets alone, pure.
std::vector<ForeignSubnet> ForeignSubnets(const Host &host, const KernelView &kernel);
Surroundings ReadSurroundings(const Host &host, const KernelView &kernel);
