// The cable from one host adapter to the switch: a TAP that is a port of the switch, and a packet socket on
// the adapter.
//
// Both ends speak with virtio-net headers, so that a segment of 64 KiB crosses as one frame and its checksum
// is left to whoever needs it; a copy of single 1500-byte frames would be ten times slower. The adapter keeps
// its addresses and works for the host as before: the socket listens beside the host's stack, in promiscuous
// mode, and hears only what comes from the wire.
//
// Not covered: guests and the host do not reach each other through the adapter. What is sent through a packet
// socket leaves on the wire and does not enter the host's own stack, and what the host sends is not taken,
// since its answers would be lost. The host's interface on the same network (zelan<N>) is the way there. Nor
// can guests use an adapter that lets no sender but itself out, as most wireless ones do.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "daemons/common/link.h"
#include "daemons/zelan-bridge/guests.h"
#include "lib/misc/owners.h"

// The largest frame that an offloading sender makes, with its Ethernet, VLAN and virtio-net headers.
using FrameBuffer = std::array<uint8_t, 65536 + 64>;

class Cable {
  public:
    // Connects the adapter to the network's switch. False after a line in the log; the object is then of no
    // use.
    bool Connect(RtSocket *socket, int network, const LinkInfo &adapter);

    // Moves what is waiting at one end to the other, up to a limit that keeps one busy cable from starving
    // the rest.
    void MoveToAdapter(GuestTable *guests, GuestTable::Time now);
    void MoveToSwitch(const GuestTable &guests, GuestTable::Time now);

    // Whether a frame for the adapter waits until its socket takes more.
    bool IsHeldUp() const { return heldSize_ != 0; }

    // Takes over a change of the adapter.
    void Follow(RtSocket *socket, const LinkInfo &adapter);

    int adapterIndex() const { return adapterIndex_; }
    const std::string &adapterName() const { return adapterName_; }
    int tapIndex() const { return tapIndex_; }
    int tap() const { return tap_.get(); }
    int adapterSocket() const { return socket_.get(); }

  private:
    bool OpenTap(RtSocket *socket, int network, const LinkInfo &adapter);
    bool OpenSocket();
    bool SendHeld();

    int adapterIndex_ = 0;
    int tapIndex_ = 0;
    uint32_t mtu_ = 0;
    std::string adapterName_;
    char tapName_[IFNAMSIZ] = {};
    FileDescriptor tap_;
    FileDescriptor socket_;
    // A frame from the switch that the adapter's queue had no room for.
    FrameBuffer held_;
    size_t heldSize_ = 0;
};
