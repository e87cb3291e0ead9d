// The bridge's programs as classifier filters, for kernels on which they cannot be attached by links. Such a
// filter outlives its daemon, so that it has a place of its own by which whoever comes after finds it: the
// preference and the handle are fixed, and the handle names the network.
#pragma once

#include "daemons/common/rtnetlink.h"

// Which way frames go at an interface.
enum class Direction { IN, OUT };

// Attaches a loaded program; one that stands there for the network is replaced. An errno value.
int TcFilter_Attach(RtSocket *socket, int interface, Direction direction, int network, int program);

// Removes the network's filter from both directions of an interface, if there is any.
void TcFilter_Remove(RtSocket *socket, int interface, int network);

// For watchers: removes what a dead daemon of that network has left on any interface of the host.
void TcFilter_RemoveAll(RtSocket *socket, int network);
