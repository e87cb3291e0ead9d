// A cable's port on the switch: a TAP, which the kernel removes when nobody holds its descriptor.
//
// It speaks with virtio-net headers, so that a segment of 64 KiB crosses as one frame and its checksum is
// left to whoever needs it; a copy of single 1500-byte frames would be ten times slower.
#pragma once

#include "daemons/common/link.h"
#include "lib/misc/owners.h"

class Tap {
  public:
    // Makes it for that adapter, down and on no switch. False after a line in the log.
    bool Make(RtSocket *socket, int network, const LinkInfo &adapter);

    // Makes it a port of the network's switch, and brings it up. False after a line in the log.
    bool Plug(RtSocket *socket, int network, const LinkInfo &adapter);

    // Takes the adapter's size of frames over.
    void FollowMtu(RtSocket *socket, uint32_t mtu);

    // Tells the switch that this address is here for good, whatever guests claim as theirs.
    void FollowMac(RtSocket *socket, const MacAddress &mac);

    int index() const { return index_; }
    const FileDescriptor &descriptor() const { return descriptor_; }

  private:
    int index_ = 0;
    uint32_t mtu_ = 0;
    MacAddress mac_ = {};
    FileDescriptor descriptor_;
};
