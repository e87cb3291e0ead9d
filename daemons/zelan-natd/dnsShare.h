// Fairness between guests: what one of them keeps busy must not be missing to another.
#pragma once

#include <cstddef>
#include <map>

#include "daemons/zelan-natd/dns.h"

// How many things of each guest are under way.
using DnsLoad = std::map<DnsGuest, size_t>;

// Counts what the entries of a list, each with its guest as `sender`, hold.
template <typename List>
DnsLoad DnsShare_Count(const List &entries) {
    DnsLoad load;
    for (const auto &entry : entries) {
        load[entry.sender]++;
    }
    return load;
}

// The guest with the most.
inline DnsGuest DnsShare_Greediest(const DnsLoad &load) {
    DnsGuest greediest = 0;
    size_t most = 0;
    for (const auto &[sender, count] : load) {
        if (count > most) {
            greediest = sender;
            most = count;
        }
    }
    return greediest;
}

// Removes a guest's first, which is its oldest, entry.
template <typename List>
void DnsShare_RemoveOldest(List *entries, DnsGuest sender) {
    for (auto entry = entries->begin(); entry != entries->end(); ++entry) {
        if (entry->sender == sender) {
            entries->erase(entry);
            return;
        }
    }
}
