// The rules that the kernel translates and forwards by, as text in the language of nft.
//
// A guest's packet is translated twice: in the router's namespace from the guest's address to the router's on
// the uplink, and on the host from that to the host's own. The host thus needs no route to the guests, whose
// subnet may be anything, and a forward goes the same way back.
#pragma once

#include <string>
#include <vector>

#include "daemons/zelan-natd/natConf.h"

// Interfaces of the router.
inline constexpr const char *GUESTS_LINK = "guests";
inline constexpr const char *UPLINK_LINK = "uplink";

// What a kernel may lack.
struct NatFeatures {
    bool ftp = true;         // follow the data connections of active FTP
    bool udpTimeout = true;  // a time-out of our own for UDP flows
};

// The host's side of a network's router.
struct HostSide {
    int network = 0;
    const char *uplink = nullptr;  // the host's end of the uplink
    Ipv4 router = 0;               // the router's address on the uplink
};

// The host's table, which sends the forwarded ports to the router. The owner's flag makes it the daemon's own
// until it dies: no other daemon can serve the network, and nobody else can change the rules.
std::string Ruleset_Host(const HostSide &side, const NatConf &conf, const std::vector<PortForward> &forwards,
                         const NatFeatures &features);

// The router's table, which sends them to the guests.
std::string Ruleset_Router(const NatConf &conf, const std::vector<PortForward> &forwards,
                           const NatFeatures &features);
