// Pairs of UTF-16 units: the code points from 0x10000 up take two units, a lead and a trail.
#pragma once

#include <cstdint>

constexpr uint32_t UTF16_FIRST_PAIRED = 0x10000;

constexpr bool Utf16_IsLead(uint32_t unit) {
    return (unit & 0xFC00) == 0xD800;
}

constexpr bool Utf16_IsTrail(uint32_t unit) {
    return (unit & 0xFC00) == 0xDC00;
}

constexpr uint32_t Utf16_Join(uint32_t lead, uint32_t trail) {
    return UTF16_FIRST_PAIRED + ((lead & 0x3FF) << 10 | (trail & 0x3FF));
}

constexpr uint32_t Utf16_LeadOf(uint32_t codePoint) {
    return 0xD800 + ((codePoint - UTF16_FIRST_PAIRED) >> 10);
}

constexpr uint32_t Utf16_TrailOf(uint32_t codePoint) {
    return 0xDC00 + (codePoint & 0x3FF);
}
