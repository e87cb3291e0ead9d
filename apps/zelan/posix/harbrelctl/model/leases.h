// Leases of a network's DHCP server, in the formats of both servers that may write the file.
#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "apps/zelan/posix/harbrelctl/model/network.h"

struct Lease {
    uint32_t address = 0;
    std::string mac;   // as StandardMac
    std::string name;  // that the guest gave itself; often empty
    std::optional<time_t> from;
    std::optional<time_t> until;  // nothing: for ever
    bool reserved = false;        // the address is tied to this MAC
    bool operator==(const Lease &) const = default;
};

// The leases that are valid at `now`, by address. ISC dhcpd's file is a journal, the other a list; which one
// it is shows in the text. Pure; lines that do not read are passed over.
std::vector<Lease> ParseLeases(std::string_view text, time_t now);

// Of one network, with `reserved` filled in.
std::vector<Lease> ReadLeases(const Host &host, int network);
