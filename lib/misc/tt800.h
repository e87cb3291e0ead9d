// The TT800 twisted generator of Matsumoto and Kurita: fast, with a period of 2^800 - 1, and no secret.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

class Tt800 {
  public:
    // The state is the published start table with the seed XORed into each word.
    explicit Tt800(uint32_t seed);
    uint32_t Next();

  private:
    static constexpr size_t WORDS = 25;
    void Regenerate();

    std::array<uint32_t, WORDS> state_;
    size_t index_ = 0;
};
