// The router of a network: a network namespace with an interface on the network's switch, which has the
// gateway's address, and an uplink to the host.
#pragma once

#include "daemons/common/daemon.h"
#include "daemons/common/link.h"
#include "daemons/common/switch.h"
#include "daemons/zelan-natd/natConf.h"
#include "lib/misc/owners.h"

struct Router {
    FileDescriptor space;
    char uplink[IFNAMSIZ] = {};  // the name of the uplink on the host
    Ipv4 hostAddress = 0;        // the addresses of its two ends
    Ipv4 address = 0;
};

// Names the uplink and chooses its addresses: a subnet of four that belongs to this network alone and that
// the host knows nobody in. False after a line in the log.
bool Router_Plan(RtSocket *socket, int network, const NatConf &conf, Router *router);

// Makes the namespace and the interfaces, and joins them to the switch and to the host. Call with the
// network's lock held and the switch in use. False after a line in the log; *cleanUp tells what was made.
bool Router_Make(RtSocket *socket, int network, const NatConf &conf, const MacAddress &mac, Router *router,
                 CleanUp *cleanUp);
