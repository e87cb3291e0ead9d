// One cable whose frames are copied: from the TAP to the adapter's socket and back.
#pragma once

#include <array>
#include <cstdint>

#include "daemons/zelan-bridge/frameRules.h"
#include "lib/misc/owners.h"

// The largest frame that an offloading sender makes, with its Ethernet, VLAN and virtio-net headers.
using FrameBuffer = std::array<uint8_t, 65536 + 64>;

// The senders on one side. Direct-mapped: two that share a place make the table forget one, and frames for
// that one then go both ways.
class SenderTable {
  public:
    void Note(uint64_t mac, uint64_t now) { entries_[Place(mac)] = {mac, now}; }
    // When it was heard last; 0 for never.
    uint64_t HeardAt(uint64_t mac) const {
        const Entry &entry = entries_[Place(mac)];
        return entry.mac == mac ? entry.heard : 0;
    }

  private:
    struct Entry {
        uint64_t mac = 0;
        uint64_t heard = 0;
    };
    static constexpr unsigned PLACE_BITS = 12;
    static size_t Place(uint64_t mac);

    std::array<Entry, 1U << PLACE_BITS> entries_ = {};
};

// What all cables of a network have heard of the guests.
struct HeardGuests {
    SenderTable senders;
    std::array<SentFrame, SENT_FRAMES> sent = {};
};

class CopiedCable {
  public:
    CopiedCable(const CableRecord &record, FileDescriptor tap, FileDescriptor adapter)
        : record_(record), tap_(std::move(tap)), socket_(std::move(adapter)) {}

    void Change(const CableRecord &record) { record_ = record; }

    // Moves what is waiting at one end to the other, up to a limit that keeps one busy cable from starving
    // the rest.
    void MoveToAdapter(HeardGuests *guests, uint64_t now);
    void MoveToSwitch(HeardGuests *guests, uint64_t now);

    // Whether a frame for the adapter waits until its socket takes more.
    bool IsHeldUp() const { return heldSize_ != 0; }

    uint32_t adapter() const { return record_.adapter; }
    int tap() const { return tap_.get(); }
    int adapterSocket() const { return socket_.get(); }

  private:
    bool MayLeave(const uint8_t *frame, size_t size, HeardGuests *guests, uint64_t now) const;
    bool MayEnter(const uint8_t *frame, size_t size, HeardGuests *guests, uint64_t now);
    bool SendHeld();

    CableRecord record_;
    SenderTable adapterSenders_;
    FileDescriptor tap_;
    FileDescriptor socket_;
    // A frame from the switch that the adapter's queue had no room for.
    FrameBuffer held_;
    size_t heldSize_ = 0;
};
