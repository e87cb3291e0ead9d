// The leases that the two servers keep in their files, each in a form of its own.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "daemons/common/ipv4.h"

struct DhcpLease {
    Ipv4 address = 0;
    std::string hardware;  // MAC address, lower case with colons
    std::string clientId;  // bytes; empty for none
    std::string hostName;  // as the client says; any bytes, empty for none
    int64_t end = 0;       // seconds since 1970; 0 for a lease without end
};

enum class LeaseFormat { EMPTY, DNSMASQ, ISC, FOREIGN };

LeaseFormat Leases_FormatOf(std::string_view text);

// The leases that hold at `now`, at most one for an address, in the order of the addresses. What is not
// sound is left out, as are the broken last words of a server that was killed while it wrote.
std::vector<DhcpLease> Leases_Read(LeaseFormat format, std::string_view text, int64_t now);

// The whole file for the leases. What clients say of themselves stays inside its field, whatever it is.
std::string Leases_Write(LeaseFormat format, const std::vector<DhcpLease> &leases, int64_t now);
