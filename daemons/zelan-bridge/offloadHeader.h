// What stands before each frame at a TAP and a packet socket: the virtio-net header in its basic form, the
// only one that a packet socket knows. (The kernel's own header file for it is not C++.)
#pragma once

#include <cstdint>

struct OffloadHeader {
    uint8_t flags;
    uint8_t gso_type;
    uint16_t hdr_len;
    uint16_t gso_size;
    uint16_t csum_start;
    uint16_t csum_offset;
};
static_assert(sizeof(OffloadHeader) == 10);
inline constexpr uint8_t HEADER_NEEDS_CHECKSUM = 1;
inline constexpr uint8_t HEADER_NO_SEGMENTS = 0;
