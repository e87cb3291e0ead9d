// The reader of nat.conf: sections in square brackets, lines of the form key = value, comments after "#" at
// the front of a line.
//
//   [host]         ip, netmask      the gateway's address on the network; both must be there
//                  device           /dev/zelan<N>, which names the network
//                  activeFTP, allowAnyOUI     0 or 1, by default 1
//   [udp]          timeout          seconds until an idle flow is forgotten, 0 for never, by default 60
//   [incomingudp]  <host port> = <guest's address>:<guest's port>
//   [incomingtcp]  the same
//
// The reader is strict: what it does not know, finds twice or cannot convert is an error, since a line that
// is passed over silently would be a hole or a missing one in the network's wall.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "daemons/common/ipv4.h"

struct PortForward {
    bool tcp = false;  // else UDP
    uint16_t hostPort = 0;
    Ipv4 guest = 0;
    uint16_t guestPort = 0;
};

struct NatConf {
    Ipv4 gateway = 0;
    int prefix = 0;
    int network = -1;  // -1 when there is no device line
    bool activeFtp = true;
    bool allowAnyOui = true;
    uint32_t udpTimeout = 60;  // seconds; 0 for no time-out
    std::vector<PortForward> forwards;

    Ipv4Subnet subnet() const { return {gateway, prefix}; }
};

struct NatConfFault {
    int line = 0;  // from 1; 0 when the file as a whole is at fault
    std::string reason;
};

// Reads a file's text. False with the first fault; *conf is then of no use.
bool NatConf_Parse(std::string_view text, NatConf *conf, NatConfFault *fault);
