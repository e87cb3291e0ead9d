// The internal, chained form of a list of host adapters: each record a block of its own from calloc.
#pragma once

#include <cstdint>

#include "lib/harbrel/harbrel.h"

class HostAdapterChain {
  public:
    HostAdapterChain() = default;
    ~HostAdapterChain();
    HostAdapterChain(const HostAdapterChain &) = delete;
    HostAdapterChain &operator=(const HostAdapterChain &) = delete;
    HostAdapterChain &operator=(HostAdapterChain &&other) noexcept;

    // Both take the record over.
    void Append(HBL_HostAdapter *record);
    void PushFront(HBL_HostAdapter *record);
    // Hands the first record over; null when there is none.
    HBL_HostAdapter *TakeFirst();

    const HBL_HostAdapter *First() const { return first_; }  // linked by `next`
    uint32_t Count() const { return count_; }

  private:
    HBL_HostAdapter *first_ = nullptr;
    HBL_HostAdapter *last_ = nullptr;
    uint32_t count_ = 0;
};
