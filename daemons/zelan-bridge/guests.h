// The senders behind the switch, remembered to keep frames from going round in a circle.
//
// Two adapters of one host may hang on the same physical network. What a guest sends leaves through both, and
// each adapter then hears what the other has sent. Such a frame is told by its sender: an address that has
// just sent from inside does not come from outside. A guest that has moved to another machine is heard again
// as soon as it has been silent here for ECHO_TIME.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

class GuestTable {
  public:
    using Time = std::chrono::milliseconds;  // of any steady clock
    static constexpr Time ECHO_TIME{2000};

    // Notes that the sender of this Ethernet frame is inside.
    void NoteSender(const uint8_t *frame, Time now);

    // Whether the sender of this frame has been noted within ECHO_TIME.
    bool IsEcho(const uint8_t *frame, Time now) const;

  private:
    struct Entry {
        uint64_t address = 0;
        Time seen{0};
    };
    // Direct-mapped: two senders that share a place make the table forget one, which costs no more than the
    // protection of that one.
    static constexpr size_t ENTRY_COUNT = 4096;

    static uint64_t Sender(const uint8_t *frame);
    static size_t Place(uint64_t address);

    std::array<Entry, ENTRY_COUNT> entries_ = {};
};
