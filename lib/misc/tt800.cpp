#include "lib/misc/tt800.h"

namespace {

constexpr uint32_t START_TABLE[] = {
    0x95F24DAB, 0x0B685215, 0xE76CCAE7, 0xAF3EC239, 0x715FAD23, 0x24A590AD, 0x69E4B5EF,
    0xBF456141, 0x96BC1B7B, 0xA7BDF825, 0xC1DE75B7, 0x8858A9C9, 0x2DA87693, 0xB657F9DD,
    0xFFDC8A9F, 0x8121DA71, 0x8B823ECB, 0x885D05F5, 0x4E20CD47, 0x5A9AD5D9, 0x512C0C03,
    0xEA857CCD, 0x4CC1D30F, 0x8891A8A1, 0xA6B7AADB,
};
constexpr size_t TWIST_OFFSET = 7;
constexpr uint32_t TWIST_MASK = 0x8EBFD028;
constexpr uint32_t TEMPERING_MASK_B = 0x2B5B2500;
constexpr uint32_t TEMPERING_MASK_C = 0xDB8B0000;

}  // namespace

Tt800::Tt800(uint32_t seed) {
    static_assert(sizeof START_TABLE == WORDS * sizeof(uint32_t));
    for (size_t i = 0; i < WORDS; i++) {
        state_[i] = START_TABLE[i] ^ seed;
    }
}

void Tt800::Regenerate() {
    for (size_t i = 0; i < WORDS; i++) {
        const uint32_t word = state_[i];
        state_[i] = state_[(i + TWIST_OFFSET) % WORDS] ^ (word >> 1) ^ ((word & 1) != 0 ? TWIST_MASK : 0);
    }
    index_ = 0;
}

uint32_t Tt800::Next() {
    if (index_ == WORDS) {
        Regenerate();
    }
    uint32_t word = state_[index_++];
    word ^= (word << 7) & TEMPERING_MASK_B;
    word ^= (word << 15) & TEMPERING_MASK_C;
    return word ^ (word >> 16);
}
