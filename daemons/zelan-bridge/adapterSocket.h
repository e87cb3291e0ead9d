// The packet socket on an adapter.
#pragma once

#include "daemons/common/link.h"
#include "lib/misc/owners.h"

// A socket that hears nothing and keeps the adapter promiscuous for as long as it is open. Also turns off
// what an adapter must not do to frames that travel on: joining several into one that nobody can split again.
// Empty after a line in the log.
FileDescriptor AdapterSocket_Open(const LinkInfo &adapter);

// Makes it hear what comes from the wire and is not for the host alone, with virtio-net headers. False after
// a line in the log.
bool AdapterSocket_Listen(const FileDescriptor &handle, int adapter);
