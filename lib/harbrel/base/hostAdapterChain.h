// The internal, chained form of a list of host adapters: each record a block of its own from calloc.
#pragma once

#include "lib/harbrel/harbrel.h"

// Frees the chain and leaves the head null. A null head is an empty list.
void HBLFreeHostAdapList(HBL_HostAdapter **head);

// An owner for one chain.
class HostAdapterChain {
  public:
    HostAdapterChain() = default;
    ~HostAdapterChain() { HBLFreeHostAdapList(&head); }
    HostAdapterChain(const HostAdapterChain &) = delete;
    HostAdapterChain &operator=(const HostAdapterChain &) = delete;

    HBL_HostAdapter *head = nullptr;
    uint32_t count = 0;
};
