// What one NAT network needs of the host's packet filter.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "daemons/common/ipv4.h"

struct HostPort {
    bool tcp = false;  // else UDP
    uint16_t port = 0;

    bool operator==(const HostPort &) const = default;
};

// A port of one of the host's addresses.
struct HostEndpoint {
    Ipv4 address = 0;
    HostPort port;
};

struct NatShare {
    Ipv4 router = 0;                 // its router's address on the uplink
    bool ownTimeout = false;         // its UDP flows have a time-out of their own,
    uint32_t udpTimeout = 0;         // in seconds, 0 for none at all
    bool activeFtp = false;          // follow the data connections of its FTP clients
    std::vector<HostPort> forwards;  // go to the router, whichever of the host's addresses they are for,
    std::vector<HostEndpoint> kept;  // but for these, which programs of the host serve
    std::vector<HostPort> awaited;   // would be forwards, if other programs did not have them
};

// The share as lines of text, and back; false for a text that is none.
std::string NatShare_Text(const NatShare &share);
bool NatShare_Parse(std::string_view text, NatShare *share);
