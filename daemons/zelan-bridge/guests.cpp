#include "daemons/zelan-bridge/guests.h"

#include <cstring>

#include "daemons/common/link.h"

uint64_t GuestTable::Sender(const uint8_t *frame) {
    constexpr size_t SENDER_OFFSET = 6;
    uint64_t address = 0;
    memcpy(&address, frame + SENDER_OFFSET, sizeof(MacAddress));
    return address;
}

size_t GuestTable::Place(uint64_t address) {
    constexpr uint64_t GOLDEN_RATIO = 0x9e3779b97f4a7c15;
    constexpr unsigned PLACE_BITS = 12;
    static_assert(ENTRY_COUNT == 1U << PLACE_BITS);
    return static_cast<size_t>((address * GOLDEN_RATIO) >> (64 - PLACE_BITS));
}

void GuestTable::NoteSender(const uint8_t *frame, Time now) {
    uint64_t address = Sender(frame);
    entries_[Place(address)] = {address, now};
}

bool GuestTable::IsEcho(const uint8_t *frame, Time now) const {
    uint64_t address = Sender(frame);
    const Entry &entry = entries_[Place(address)];
    return entry.address == address && address != 0 && now - entry.seen < ECHO_TIME;
}
