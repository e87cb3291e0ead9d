// The kernel's links, addresses, routes and forwarding tables of bridges, over rtnetlink.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "apps/zelan/posix/harbrelctl/model/address.h"

// Groups that mark the interfaces that the daemons make, by which they are known whatever their names.
enum LinkGroup : uint32_t {
    GROUP_CARRIER = 1190,  // switches and what carries frames to them
    GROUP_DEAD = 1191,     // put aside, to be removed
    GROUP_HOST = 1192,     // the host's own interface on a network
    GROUP_UPLINK = 1193,   // the host's end of a NAT network
};
bool IsOurs(uint32_t group);

struct Link {
    int index = 0;
    int master = 0;  // the bridge that it is a port of; 0 for none
    std::string name;
    std::string kind;  // "bridge", "veth", "tun", ...; empty for hardware
    uint32_t group = 0;
    unsigned flags = 0;  // IFF_...
    bool carrier = false;
    bool ethernet = false;
    std::string mac;  // as StandardMac; empty without an Ethernet address
    uint64_t receivedBytes = 0, sentBytes = 0;
    uint64_t receivedPackets = 0, sentPackets = 0;
    bool operator==(const Link &) const = default;
};

struct LinkAddress {
    int link = 0;
    uint32_t address = 0;
    Subnet subnet;
};

struct Route {
    Subnet destination;
    int link = 0;
    uint32_t gateway = 0;  // 0 for a route without one
};

// What a bridge has learned: a MAC address behind a port.
struct Learned {
    int port = 0;
    std::string mac;
};

struct KernelView {
    std::vector<Link> links;
    std::vector<LinkAddress> addresses;
    std::vector<Route> routes;  // of the main table
    std::vector<Learned> learned;

    const Link *Find(const std::string &name) const;  // null when there is none
    const Link *Find(int index) const;
};

// The name of the switch of a network.
std::string SwitchName(int network);

// False when the kernel refuses, with errno.
bool ReadKernel(KernelView *view);
