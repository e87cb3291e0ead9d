// The switch of a network: the Linux bridge zelan-sw<N>, to which the daemons and the guests attach.
//
// Whichever daemon needs it first makes it. zelan-watch, to which every daemon says so beforehand, removes it
// once no living daemon needs it and no guest is attached.
#pragma once

#include <string>

#include "daemons/common/link.h"
#include "daemons/common/rtnetlink.h"

inline constexpr int SWITCH_MAX_NETWORK = 255;

std::string Switch_Name(int network);

// Finds the network's switch or makes it, and returns its index; 0 after a line in the log. Call with
// the network claimed, like all below.
int Switch_Ensure(RtSocket *socket, int network);

// Two joined interfaces, the first a port of the switch, the second for a daemon's own purposes.
struct SwitchPort {
    int portIndex = 0;
    int peerIndex = 0;  // 0 when the peer stands in another namespace
};

// Makes two joined interfaces without IPv6; the first is up, the second left down for whom it is made to
// configure. What a dead predecessor has left under one of the names is removed; an interface of anybody else
// is never touched. False after a line in the log.
bool Switch_MakePair(RtSocket *socket, const VethPlan &plan, SwitchPort *port);

// Makes the switch if need be and such a pair on it. With `peerNamespace` (a descriptor of a network
// namespace) the peer stands in there; with -1 it is the host's own interface on the network. False after a
// line in the log.
bool Switch_MakePort(RtSocket *socket, int network, const char *portName, const char *peerName,
                     int peerNamespace, SwitchPort *port);
